# The function declarations of a C header, without its comments and types.
{
  line = $0
  if (comment) {
    if (!(end = index(line, "*/"))) next
    line = substr(line, end + 2)
    comment = 0
  }
  gsub(/\/\*[^*]*\*\//, "", line)
  if ((start = index(line, "/*"))) {
    line = substr(line, 1, start - 1)
    comment = 1
  }
  sub(/[ \t]+$/, "", line)
  if (declaration == "" && (line !~ /^[a-z][^={]*\(/ || line ~ /^typedef/)) next
  declaration = declaration line "\n"
  if (line !~ /;$/) next
  printf "%s", declaration
  declaration = ""
}
