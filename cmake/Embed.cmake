# cmake -DINPUT=FILE -DOUTPUT=FILE -DNAME=zem::name -P Embed.cmake
# Writes a C++ source that holds the bytes of INPUT as the std::string_view NAME; it is declared where
# it is used.
string(REGEX MATCH "^(.*)::([^:]+)$" MATCHED ${NAME})
set(SPACE ${CMAKE_MATCH_1})
set(VARIABLE ${CMAKE_MATCH_2})
file(READ ${INPUT} DIGITS HEX)
string(REGEX REPLACE "(..)" "0x\\1," BYTES "${DIGITS}")
string(REGEX REPLACE "((0x..,)(0x..,)(0x..,)(0x..,)(0x..,)(0x..,)(0x..,)(0x..,))" "\\1\n" BYTES "${BYTES}")
file(WRITE ${OUTPUT} "#include <string_view>

namespace ${SPACE} {

constexpr unsigned char bytes[] = {
${BYTES}
};

extern const std::string_view ${VARIABLE};
const std::string_view ${VARIABLE}(reinterpret_cast<const char*>(bytes), sizeof bytes);

} // namespace ${SPACE}
")
