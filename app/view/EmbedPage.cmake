# cmake -DPAGE_DIR=... -DOUTPUT=... -P EmbedPage.cmake
# Puts each style sheet and script into index.html where it names them
# (@page.css@, @page.js@, one marker a file, each in its own <style> or <script>)
# and writes the document's bytes as kViewPage into a C++ source, so the program
# serves the page from memory and the page is edited as the files it is.
file(READ "${PAGE_DIR}/index.html" html)
string(REGEX MATCHALL "@[a-z_]+\\.(css|js)@" markers "${html}")
foreach(marker IN LISTS markers)
  string(REPLACE "@" "" name "${marker}")
  file(READ "${PAGE_DIR}/${name}" text)
  string(REPLACE "${marker}" "${text}" html "${html}")
endforeach()
# The document ends at </html>; an editor's closing newline is not part of it.
string(REGEX REPLACE "\n$" "" html "${html}")
file(WRITE "${OUTPUT}.page" "${html}")
file(READ "${OUTPUT}.page" hex HEX)
file(REMOVE "${OUTPUT}.page")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.new" "// Made at build time from app/view/page/ by EmbedPage.cmake.\n#include \"app/view/ViewServer.h\"\n\nnamespace {\nconst unsigned char kBytes[] = {\n${bytes}0x00};\n}  // namespace\n\nconst char* const kViewPage = reinterpret_cast<const char*>(kBytes);\n")
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
