#include "fits_keys.h"

#include "put_fits_key.h"

namespace vscindi {
namespace {

constexpr const char *kOfMosaic[] = {"BAYERPAT", "XBAYROFF", "YBAYROFF"};

} // namespace

void PutKeys(fitsfile *file, const std::vector<vsctool::FitsKey> &keys, bool hasMosaic)
{
    for (const vsctool::FitsKey &key : keys)
        (void)vsctool::PutFitsKey(file, key, 0); // the frame is worth more than one key
    for (const char *const name : kOfMosaic) {
        int status = 0; // not there
        if (!hasMosaic)
            fits_delete_key(file, name, &status);
    }
}

} // namespace vscindi
