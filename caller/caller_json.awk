# SPDX-License-Identifier: MIT
#
# Makes caller.json of the public headers, for those who cannot include them: constants, records with the place of each
# field, functions and the types of call-backs. Fields lie as C compilers for x86 place them, in programs of 32 and of 64
# bits. What is not understood ends it with an error.
#
#   awk -v version=1.2.3 -v output=FILE -f caller_json.awk kacall.map HEADER...     a header after those that it needs

function fail(what)
{
    print "caller_json.awk: not understood: " what >"/dev/stderr"
    failed = 1
    exit 1
}

function trimmed(text)
{
    gsub(/[ \t\n]+/, " ", text)
    sub(/^ /, "", text)
    sub(/ $/, "", text)
    return text
}

function quoted(text)
{
    return "\"" text "\""
}

# ---- Constants -------------------------------------------------------------------------------------------------------

function hexadecimal(digits, i, value)
{
    for (i = 1; i <= length(digits); i++)
        value = value * 16 + index("0123456789abcdef", tolower(substr(digits, i, 1))) - 1
    return value
}

function term(text)
{
    text = trimmed(text)
    if (text ~ /^0x[0-9A-Fa-f]+$/) return hexadecimal(substr(text, 3))
    if (text ~ /^-?[0-9]+$/) return text + 0
    if (!(text in constant)) fail("the value " text)
    return constant[text]
}

function sum(text, terms, count, i, value)
{
    count = split(text, terms, "+")
    for (i = 1; i <= count; i++)
        value += term(terms[i])
    return value
}

function add_constants(list, items, count, i, parts, next_value)
{
    count = split(list, items, ",")
    for (i = 1; i <= count; i++) {
        if (split(items[i], parts, "=") == 2) next_value = sum(parts[2])
        parts[1] = trimmed(parts[1])
        constant[parts[1]] = next_value++
        constants[++constant_count] = parts[1]
    }
}

# ---- Declarators: type and name of a field or parameter -----------------------------------------------------------------

# "const char *name" and "char message[512]": sets name and type, and elements, which is 0 for what is no array.
function declare(text)
{
    text = trimmed(text)
    elements = 0
    if (match(text, /\[[^\]]*\]$/)) {
        elements = sum(substr(text, RSTART + 1, RLENGTH - 2))
        text = trimmed(substr(text, 1, RSTART - 1))
    }
    if (!match(text, /[A-Za-z_][A-Za-z_0-9]*$/) || RSTART == 1) fail("the declaration " text)
    name = substr(text, RSTART)
    type = trimmed(substr(text, 1, RSTART - 1))
}

function parameters(list, items, count, i, out)
{
    list = trimmed(list)
    if (list == "void") return "[]"
    count = split(list, items, ",")
    for (i = 1; i <= count; i++) {
        declare(items[i])
        if (elements > 0) type = type (type ~ /\*$/ ? "*" : " *")
        out = out (i > 1 ? ", " : "") "{\"name\": " quoted(name) ", \"type\": " quoted(type) "}"
    }
    return "[" out "]"
}

# "int32_t ka_call(ka_host *host)": sets name and returns the function as JSON.
function function_json(text, list)
{
    text = trimmed(text)
    if (!match(text, /\(.*\)$/)) fail(text)
    list = parameters(substr(text, RSTART + 1, RLENGTH - 2))
    match(text, /\(/)
    declare(substr(text, 1, RSTART - 1))
    return "{\"result\": " quoted(type) ", \"parameters\": " list "}"
}

# ---- Records ---------------------------------------------------------------------------------------------------------

function width_of(text, bits)
{
    sub(/^const /, "", text)
    if (text ~ /\*( const)?$/) return bits / 8
    if (text in width) return width[text]
    fail("the size of " text)
}

# Programs of 32 bits align 8 bytes to 4.
function alignment_of(text, bits, bytes)
{
    bytes = width_of(text, bits)
    return bytes > bits / 8 ? bits / 8 : bytes
}

function aligned(place, alignment)
{
    return int((place + alignment - 1) / alignment) * alignment
}

function add_record(record, body, fields, count, i, bits, bytes, out)
{
    end[32] = end[64] = 0
    largest[32] = largest[64] = 1
    count = split(body, fields, ";")
    for (i = 1; i < count; i++) {
        declare(fields[i])
        out = out (i > 1 ? "," : "") "\n        {\"name\": " quoted(name)
        for (bits = 32; bits <= 64; bits += 32) {
            bytes = width_of(type, bits) * (elements > 0 ? elements : 1)
            end[bits] = aligned(end[bits], alignment_of(type, bits))
            place[bits] = "{\"offset\": " end[bits] ", \"size\": " bytes "}"
            end[bits] += bytes
            if (alignment_of(type, bits) > largest[bits]) largest[bits] = alignment_of(type, bits)
        }
        out = out ", \"type\": " quoted(type (elements > 0 ? "[" elements "]" : ""))
        out = out ", \"32\": " place[32] ", \"64\": " place[64] "}"
    }
    if (trimmed(fields[count]) != "") fail("the record " record)
    records[++record_count] = "    " quoted(record) ": {\n      \"size\": {\"32\": " aligned(end[32], largest[32]) ", \"64\": " \
                              aligned(end[64], largest[64]) "},\n      \"fields\": [" out "\n      ]\n    }"
}

# ---- Headers ---------------------------------------------------------------------------------------------------------

# A statement is what stands before a semicolon outside of braces.
function take(statement, body)
{
    sub(/^([ \n]|extern "C" {|})+/, "", statement)
    if (statement ~ /^enum( [A-Za-z_]+)? *{/) {
        sub(/^[^{]*{/, "", statement)
        sub(/}[^}]*$/, "", statement)
        add_constants(statement)
    } else if (statement ~ /^typedef struct (ka_[a-z_]+|t_DECIMAL) {/) {
        body = statement
        sub(/^[^{]*{/, "", body)
        sub(/}[^}]*$/, "", body)
        match(statement, /struct [A-Za-z_]+/)
        add_record(substr(statement, RSTART + 7, RLENGTH - 7), body)
    } else if (statement ~ /^typedef struct ka_[a-z_]+ ka_[a-z_]+$/) {
        sub(/^.* /, "", statement)
        opaque[++opaque_count] = quoted(statement)
    } else if (statement ~ /^typedef .*\)$/) {
        sub(/^typedef /, "", statement)
        body = function_json(statement)
        callbacks[++callback_count] = "    " quoted(name) ": " body
    } else if (statement ~ /^KA_API .*[ *]ka_[a-z_0-9]+\(.*\)$/) {
        sub(/^KA_API /, "", statement)
        body = function_json(statement)
        if (!(name in exported)) return
        delete exported[name]
        functions[++function_count] = "    " quoted(name) ": " body
    } else if (FILENAME_read ~ /caller\.h$/ && trimmed(statement) != "") {
        fail(trimmed(statement))
    }
}

function without_comments(text, out, begin, end_at)
{
    while ((begin = index(text, "/*")) > 0) {
        out = out substr(text, 1, begin - 1) " "
        text = substr(text, begin + 2)
        end_at = index(text, "*/")
        text = substr(text, end_at + 2)
    }
    return out text
}

function take_header(text, i, c, depth, statement)
{
    text = without_comments(text)
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        if (c == "{") depth++
        if (c == "}") depth--
        if (statement ~ /extern "C" $/ && c == "{") depth--
        if (depth < 0) depth = 0 # the end of extern "C"
        if (c == ";" && depth == 0) {
            take(statement)
            statement = ""
        } else {
            statement = statement c
        }
    }
}

function flush_header()
{
    if (whole != "") take_header(whole)
    whole = ""
    FILENAME_read = FILENAME
}

BEGIN {
    width["char"] = width["int8_t"] = width["uint8_t"] = 1
    width["int16_t"] = width["uint16_t"] = 2
    width["int"] = width["int32_t"] = width["uint32_t"] = 4
    width["int64_t"] = width["uint64_t"] = width["double"] = 8
}

FNR == 1 { flush_header() }
FILENAME ~ /\.map$/ {
    if ($1 ~ /^ka_.*;$/) exported[substr($1, 1, length($1) - 1)] = 1
    next
}
/^#/ || is_continued {
    is_continued = $0 ~ /\\$/
    next
}
{ whole = whole $0 "\n" }

function print_list(title, list, count, close_with, i)
{
    print "  " quoted(title) ": {" >output
    for (i = 1; i <= count; i++)
        print list[i] (i < count ? "," : "") >output
    print "  }" close_with >output
}

END {
    if (failed) exit 1
    flush_header()
    for (missing in exported)
        fail("no header declares " missing)
    print "{\n  \"version\": " quoted(version) "," >output
    print "  \"library\": \"libkacall.so.1\"," >output
    for (i = 1; i <= constant_count; i++)
        constants[i] = "    " quoted(constants[i]) ": " constant[constants[i]]
    print_list("constants", constants, constant_count, ",")
    printf "  \"opaque\": [" >output
    for (i = 1; i <= opaque_count; i++)
        printf "%s%s", opaque[i], (i < opaque_count ? ", " : "") >output
    print "]," >output
    print_list("records", records, record_count, ",")
    print_list("callbacks", callbacks, callback_count, ",")
    print_list("functions", functions, function_count, "")
    print "}" >output
}
