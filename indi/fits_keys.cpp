#include "fits_keys.h"

namespace vscindi {
namespace {

constexpr int kDigits = 12; // of a floating-point value
constexpr const char *kOfMosaic[] = {"BAYERPAT", "XBAYROFF", "YBAYROFF"};

void Put(fitsfile *file, const vsctool::FitsKey &key)
{
    int status = 0; // a key that cannot be written is not worth the frame
    const char *const name = key.name.c_str();
    const char *const comment = key.comment.c_str();
    if (const auto *flag = std::get_if<bool>(&key.value))
        fits_update_key_log(file, name, *flag, comment, &status);
    else if (const auto *number = std::get_if<int>(&key.value))
        fits_update_key_lng(file, name, *number, comment, &status);
    else if (const auto *real = std::get_if<double>(&key.value))
        fits_update_key_dbl(file, name, *real, -kDigits, comment, &status);
    else
        fits_update_key_str(file, name, std::get<std::string>(key.value).c_str(), comment, &status);
}

} // namespace

void PutKeys(fitsfile *file, const std::vector<vsctool::FitsKey> &keys, bool hasMosaic)
{
    for (const vsctool::FitsKey &key : keys)
        Put(file, key);
    for (const char *const name : kOfMosaic) {
        int status = 0; // not there
        if (!hasMosaic)
            fits_delete_key(file, name, &status);
    }
}

} // namespace vscindi
