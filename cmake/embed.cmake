# cmake -DOUTPUT=FILE -DFILES=A,B... -P embed.cmake: writes C++ that holds the bytes of the files.
string(REPLACE "," ";" FILES "${FILES}")
set(arrays "")
set(rows "")
foreach(file ${FILES})
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER "k_${name}" array)
    file(READ ${file} digits HEX)
    string(REGEX REPLACE "(..)" "'\\\\x\\1'," characters "${digits}")
    string(APPEND arrays "constexpr char ${array}[] = {${characters}};\n")
    string(APPEND rows "    {\"${name}\", {${array}, sizeof ${array}}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"serve/page_files.h\"

namespace vsctool::serve {
namespace {

${arrays}
constexpr PageFile kFiles[] = {
${rows}};

} // namespace

std::span<const PageFile> PageFiles()
{
    return kFiles;
}

} // namespace vsctool::serve
")
