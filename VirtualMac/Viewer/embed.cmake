# cmake -DFOLDER=DIRECTORY -DOUTPUT=FILE -P embed.cmake
#
# Writes a C++ source that holds the viewer's files. They are arrays of characters, because a string
# literal may be too long for a compiler.
file(GLOB names RELATIVE ${FOLDER}
  ${FOLDER}/index.html ${FOLDER}/*.css ${FOLDER}/*.js ${FOLDER}/lib/*.css ${FOLDER}/lib/*.js)
set(arrays "")
set(entries "")
set(number 0)
foreach(name ${names})
  file(READ ${FOLDER}/${name} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "constexpr char file${number}[] = {${bytes}};\n")
  string(APPEND entries "    ViewerFile{\"${name}\", {file${number}, sizeof file${number}}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"VirtualMac/Viewer/ViewerFiles.h\"

namespace virtualmac {

namespace {

${arrays}
constexpr ViewerFile all[] = {
${entries}};

}  // namespace

std::span<const ViewerFile> viewerFiles() { return all; }

}  // namespace virtualmac
")
