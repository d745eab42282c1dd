# Writes the bytes of INPUT as an array into the source file OUTPUT.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
string(REGEX REPLACE "(................................................................................)" "\\1\n" bytes "${bytes}")
file(
  WRITE ${OUTPUT}
  "#include \"report/PageWriter.h\"\n\n"
  "namespace report {\n\n"
  "namespace {\n\nconstexpr unsigned char TEMPLATE[] = {\n${bytes}0};\n\n}  // namespace\n\n"
  "std::string_view viewerTemplate() {\n"
  "  return {reinterpret_cast<const char*>(TEMPLATE), sizeof TEMPLATE - 1};\n}\n\n"
  "}  // namespace report\n")
