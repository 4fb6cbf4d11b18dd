# Run by the build. Writes SOURCE, which defines reportTemplate as the content of the file TEMPLATE. @STYLE@ and @SCRIPT@
# in its content security policy are replaced with the hashes of its style sheet and script, the only ones that a browser
# will then accept.

# Sets <result> to the SHA-256 of <text> in base64; CMake itself gives it in hexadecimal only.
function(hash_base64 result text)
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(SHA256 hash "${text}")
  string(APPEND hash 00) # pads the 32 bytes to groups of three
  set(encoded "")
  foreach(at RANGE 0 60 6)
    string(SUBSTRING ${hash} ${at} 6 group)
    foreach(shift 18 12 6 0)
      math(EXPR digit "0x${group} >> ${shift} & 63")
      string(SUBSTRING ${digits} ${digit} 1 digit)
      string(APPEND encoded ${digit})
    endforeach()
  endforeach()
  string(SUBSTRING ${encoded} 0 43 encoded)
  set(${result} ${encoded}= PARENT_SCOPE)
endfunction()

# Sets <result> to the text between <begin> and <end> in <text>.
function(between result text begin end)
  string(LENGTH "${begin}" length)
  string(FIND "${text}" "${begin}" from)
  math(EXPR from "${from} + ${length}")
  string(SUBSTRING "${text}" ${from} -1 text)
  string(FIND "${text}" "${end}" to)
  string(SUBSTRING "${text}" 0 ${to} text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

file(READ ${TEMPLATE} page)
between(style "${page}" "<style>" "</style>")
between(script "${page}" "<script>" "</script>")
hash_base64(style "${style}")
hash_base64(script "${script}")
string(REPLACE "@STYLE@" "sha256-${style}" page "${page}")
string(REPLACE "@SCRIPT@" "sha256-${script}" page "${page}")
file(WRITE ${SOURCE} "#include \"frontend/views/reportTemplate.h\"\n\n"
  "const std::string_view reportTemplate = R\"page(${page})page\";\n")
