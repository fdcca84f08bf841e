# Flattens one JSON document into lines "PATH<TAB>KIND<TAB>VALUE", one per
# scalar: PATH joins object keys and array indexes with dots
# ("queries.freq.log.0.errno"), KIND is string, number, true, false or null,
# and VALUE is the decoded text (for strings: \" \\ \/ \n \t \r decoded,
# \uXXXX left as written). Written for busybox awk: the guest has no jq.
# A malformed document prints "json_flat: ..." on stderr and exits 2.

function fail(message) {
  printf "json_flat: %s at offset %d\n", message, pos > "/dev/stderr"
  failed = 1
  exit 2
}

function skip_space(   c) {
  while (pos <= len) {
    c = substr(text, pos, 1)
    if (c != " " && c != "\t" && c != "\n" && c != "\r") return
    pos++
  }
}

function emit(path, kind, value) {
  printf "%s\t%s\t%s\n", path, kind, value
}

function join(path, key) {
  return path == "" ? key : path "." key
}

# Reads the string that starts at pos (its opening quote); returns it decoded.
function read_string(   out, c, e) {
  if (substr(text, pos, 1) != "\"") fail("string expected")
  pos++
  out = ""
  while (pos <= len) {
    c = substr(text, pos, 1)
    if (c == "\"") { pos++; return out }
    if (c == "\\") {
      e = substr(text, pos + 1, 1)
      if (e == "n") out = out "\n"
      else if (e == "t") out = out "\t"
      else if (e == "r") out = out "\r"
      else if (e == "u") out = out "\\u"
      else out = out e
      pos += 2
      continue
    }
    out = out c
    pos++
  }
  fail("unterminated string")
}

function parse_value(path,   c, key, index_number, literal) {
  skip_space()
  c = substr(text, pos, 1)
  if (c == "{") {
    pos++
    skip_space()
    if (substr(text, pos, 1) == "}") { pos++; return }
    while (1) {
      skip_space()
      key = read_string()
      skip_space()
      if (substr(text, pos, 1) != ":") fail("':' expected")
      pos++
      parse_value(join(path, key))
      skip_space()
      c = substr(text, pos, 1)
      pos++
      if (c == "}") return
      if (c != ",") fail("',' or '}' expected")
    }
  }
  if (c == "[") {
    pos++
    skip_space()
    if (substr(text, pos, 1) == "]") { pos++; return }
    index_number = 0
    while (1) {
      parse_value(join(path, index_number))
      index_number++
      skip_space()
      c = substr(text, pos, 1)
      pos++
      if (c == "]") return
      if (c != ",") fail("',' or ']' expected")
    }
  }
  if (c == "\"") { emit(path, "string", read_string()); return }
  if (substr(text, pos, 4) == "true") { pos += 4; emit(path, "true", "true"); return }
  if (substr(text, pos, 5) == "false") { pos += 5; emit(path, "false", "false"); return }
  if (substr(text, pos, 4) == "null") { pos += 4; emit(path, "null", "null"); return }
  if (match(substr(text, pos), /^-?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]+)?/)) {
    literal = substr(text, pos, RLENGTH)
    pos += RLENGTH
    emit(path, "number", literal)
    return
  }
  fail("value expected")
}

{ text = text $0 "\n" }

END {
  if (failed) exit 2
  len = length(text)
  pos = 1
  parse_value("")
  skip_space()
  if (pos <= len) fail("trailing text")
}
