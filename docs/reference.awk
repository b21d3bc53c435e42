# SPDX-License-Identifier: MIT
#
# Makes Markdown of a public header: its head, then each declaration below the comment that stands above it. Bodies of
# functions, private parts, namespaces of details and what is below "Parts of the above" are left out. A chunk of a header
# is what is between two empty lines.
#
#   awk -v name=ka/caller.h -v page=caller.h.html -v list=FILE -v folder=FOLDER -f reference.awk HEADER
#
# To list goes a line for each symbol: symbol, page with anchor, function or other. To folder goes a manual page for each
# declaration of C functions, named by the first of them, and a line SYMBOL PAGE for each further one into the file "more".

function comment_text(line)
{
    sub(/^ *(\/\*+|\*\/|\*|\/\/) ?/, "", line)
    sub(/ *\*\/ *$/, "", line)
    return line
}

function escaped(text)
{
    gsub(/[\\*_<>`|~#\[\]]/, "\\\\&", text)
    return text
}

# Lines of a program, four blanks to the right, stay as they are. A list begins after an empty line.
function paragraph(line, before)
{
    if (line ~ /^    /) return line "\n"
    before = line ~ /^ ?- / && !in_list ? "\n" : ""
    in_list = line ~ /^ ?- / || (in_list && line ~ /^ /)
    return before escaped(line) "\n"
}

function without_comments(line)
{
    gsub(/\/\*[^*]*\*\//, "", line)
    sub(/\/\/.*/, "", line)
    sub(/\/\*.*/, "", line)
    return line
}

function braces(line, opened)
{
    line = without_comments(line)
    gsub(/'[{}]'/, "", line)
    opened = gsub(/{/, "", line)
    return opened - gsub(/}/, "", line)
}

# ---- Declarations without bodies ------------------------------------------------------------------------------------

function is_body(statement)
{
    sub(/^.*[;}]/, "", statement)
    if (statement ~ /(^|[ \n])(struct|class|enum|union) / && statement !~ /\) *(const)? *(noexcept)?[ \n]*$/) return 0
    return statement ~ /\)[^=]*$/
}

# The declaration that a definition begins with: without what a constructor sets, and with a comment after the semicolon.
function trimmed_head(head, comment)
{
    sub(/[ \n]+$/, "", head)
    if (match(head, / *\/\/[^\n]*$/)) {
        comment = substr(head, RSTART)
        head = substr(head, 1, RSTART - 1)
    }
    if (match(head, /\)( noexcept)?[ \n]+: [A-Za-z_:]+[({].*$/)) head = substr(head, 1, RSTART) (head ~ /\) noexcept[ \n]+: / ? " noexcept" : "")
    sub(/[ \n]+$/, "", head)
    return head ";" comment
}

function without_bodies(code, out, statement, i, c, depth, parentheses, rest, begin)
{
    begin = 0
    for (i = 1; i <= length(code); i++) {
        c = substr(code, i, 1)
        rest = substr(code, i)
        if (match(rest, /^\/\/[^\n]*/) || match(rest, /^\/\*[^*]*\*\//) || match(rest, /^"[^"\n]*"/) || match(rest, /^'.'/)) {
            if (depth == 0) out = out substr(rest, 1, RLENGTH)
            if (substr(rest, 1, 1) != "/") statement = statement "x"
            i += RLENGTH - 1
            continue
        }
        if (depth > 0) {
            depth += c == "{" ? 1 : c == "}" ? -1 : 0
            if (depth == 0) begin = length(out)
            continue
        }
        parentheses += c == "(" ? 1 : c == ")" ? -1 : 0
        if (c == "{" && parentheses == 0 && is_body(statement)) {
            depth = 1
            out = substr(out, 1, begin) trimmed_head(substr(out, begin + 1))
            statement = ""
            continue
        }
        out = out c
        statement = c ~ /[;{}]/ ? "" : statement c
        if (statement == "") begin = length(out)
    }
    return out
}

function public_parts(code, lines, count, i, out, hidden)
{
    count = split(code, lines, "\n")
    for (i = 1; i <= count; i++) {
        if (lines[i] ~ /^ *private:/) hidden = substr(lines[i], 1, match(lines[i], /private/) - 1)
        if (lines[i] ~ /^ *private:/) is_hidden = 1
        if (is_hidden && lines[i] == hidden "};") is_hidden = 0
        if (!is_hidden && lines[i] !~ /NOLINT/) out = out lines[i] "\n"
    }
    is_hidden = 0
    gsub(/\n\n\n+/, "\n\n", out)
    gsub(/\n+    };/, "\n    };", out)
    gsub(/\n+};/, "\n};", out)
    return out
}

# ---- Symbols ---------------------------------------------------------------------------------------------------------

function add_symbol(symbol, kind)
{
    if (symbol == "" || symbol ~ /_$/ || symbol ~ /^operator/ || (symbol in known_here)) return
    known_here[symbol] = 1
    symbols[++symbol_count] = symbol
    kinds[symbol_count] = kind
}

function last_word(text)
{
    sub(/[ \n]+$/, "", text)
    return match(text, /[A-Za-z_][A-Za-z_0-9]*$/) ? substr(text, RSTART) : ""
}

function add_constants(line, parts, count, i)
{
    line = without_comments(line)
    sub(/^.*enum *[a-z0-9_: ]*{/, "", line)
    sub(/}.*/, "", line)
    count = split(line, parts, ",")
    for (i = 1; i <= count; i++)
        if (parts[i] ~ /^ *[A-Za-z][A-Za-z_0-9]+ *(=.*)?$/ && match(parts[i], /[A-Za-z][A-Za-z_0-9]+/)) add_symbol(substr(parts[i], RSTART, RLENGTH), "other")
}

function find_symbols(code, lines, count, i, line, in_enum, in_record)
{
    count = split(code, lines, "\n")
    for (i = 1; i <= count; i++) {
        line = without_comments(lines[i])
        if (line ~ /^(typedef )?enum *[a-z0-9_: ]*{/ && line !~ /^enum class/) in_enum = 1
        if (in_enum) add_constants(line)
        if (in_enum && line ~ /}/) { in_enum = 0; continue }
        if (in_record && match(line, /^} [A-Za-z_0-9]+;/)) add_symbol(substr(line, 3, RLENGTH - 3), "other")
        in_record = line ~ /^typedef (struct|union) {/ || (in_record && line !~ /^}/) # without a tag
        if (in_enum || line !~ /^[#A-Za-z_]/ || line ~ /^(template|public:|static_assert)/) continue
        gsub(/__attribute__\(\([^)]*(\([^)]*\))?\)\) */, "", line)
        if (line ~ /^#define /) {
            sub(/^#define /, "", line)
            match(line, /^[A-Za-z_0-9]+/)
            add_symbol(substr(line, 1, RLENGTH), "other")
        } else if (is_cpp && line ~ /^(struct|class) [A-Za-z_0-9]+;/) {
            continue # it is declared elsewhere
        } else if (match(line, /^(typedef )?(struct|class|union|enum class) [A-Za-z_0-9]+/)) {
            add_symbol(qualified(last_word(substr(line, 1, RLENGTH))), "other")
        } else if (line ~ /^typedef .*\(\*/) { # of a function
            sub(/\) *\(.*/, "", line)
            add_symbol(last_word(line), "other")
        } else if (line ~ /^using /) {
            sub(/ *=.*/, "", line)
            add_symbol(qualified(last_word(line)), "other")
        } else if (index(line, "(") > 0 && line !~ /^[^(]*=/) {
            sub(/\(.*/, "", line)
            add_symbol(qualified(last_word(line)), line ~ /^typedef/ ? "other" : "function")
        } else if (line ~ /(extern|constexpr)/) {
            sub(/ *(\[|=|{|;).*/, "", line)
            add_symbol(qualified(last_word(line)), "other")
        }
    }
}

function qualified(symbol)
{
    return symbol != "" ? space symbol : symbol
}

function anchor_of(symbol)
{
    gsub(/::/, ".", symbol)
    return symbol
}

# ---- Chunks ----------------------------------------------------------------------------------------------------------

function flush(i, code, heading)
{
    symbol_count = 0
    code = public_parts(without_bodies(chunk_code))
    sub(/^\n+/, "", code)
    sub(/\n+$/, "\n", code)
    if (code ~ /[^ \n]/) find_symbols(code)
    if (symbol_count > 0) {
        print ""
        for (i = 1; i <= symbol_count; i++) {
            if (symbol_count > 1 || symbols[i] !~ /^[a-z_0-9]+$/) # else the heading's own anchor
                printf "<a id=\"%s\"></a>", anchor_of(symbols[i])
            heading = heading (i > 1 ? ", " : "") symbols[i]
            print symbols[i] "\t" page "#" anchor_of(symbols[i]) "\t" kinds[i] >list
        }
        print "\n\n### " escaped(heading)
    }
    if (chunk_comment != "") printf "\n%s", chunk_comment
    gsub(/KA_API (__attribute__\(\(noreturn\)\) )?/, "", code)
    if (symbol_count > 0) print "\n```c\n" code "```"
    if (symbol_count > 0 && kinds[1] == "function" && !is_cpp) write_page(code)
    chunk_comment = chunk_code = ""
    depth = in_comment = 0
}

function write_page(code, file, i, names, summary)
{
    file = folder "/" symbols[1] ".md"
    for (i = 1; i <= symbol_count; i++) {
        names = names (i > 1 ? ", " : "") escaped(symbols[i])
        if (i > 1) print symbols[i], symbols[1] >>(folder "/more")
    }
    summary = chunk_comment
    gsub(/[ \n]+/, " ", summary)
    sub(/\. .*$/, "", summary)
    sub(/[. ]+$/, "", summary)
    print "# NAME\n\n" names " - " (summary != "" ? summary : "of " name) "\n\n# SYNOPSIS\n\n    #include <" name ">\n" >file
    gsub(/\n/, "\n    ", code)
    print "    " code "\n# DESCRIPTION\n\n" chunk_comment "\n# SEE ALSO\n\nka\\_" substr(name, 4) "(3), kahost-codes(7)" >file
    close(file)
}

function is_left_out(line)
{
    return line ~ /^#(ifndef|ifdef|endif|include|if|else|undef|define [A-Z_]+_HP*$)/ || line ~ /^(extern "C"|DLL_WIRE|namespace|\/\* clang-format|\/\/ clang-format)/ ||
           line ~ /^}( \/\/ namespace.*)?$/
}

{
    if (finished) next
    if (NR == 1) { in_head = 1; next }
    if (in_head) {
        if ($0 !~ /^( \*|\/\/)/) {
            in_head = 0
        } else {
            text = comment_text($0)
            if (head_text != "" || text != "") head_text = head_text paragraph(text)
            if ($0 ~ /\*\/ *$/) in_head = 0
            next
        }
    }
    if (!head_printed) {
        printf "# %s\n\n%s", name, head_text
        head_printed = 1
    }
    if (skipped_depth > 0) {
        skipped_depth += braces($0)
        next
    }
    if ($0 ~ /^namespace (ka::)?(module_)?detail {/) {
        flush()
        skipped_depth = 1
        next
    }
    if (match($0, /^namespace ka(::[a-z_]+)* {/)) {
        space = substr($0, 11, RLENGTH - 12) "::" # of the names from here on
        is_cpp = 1
    }
    if (match($0, /^(\/\*|\/\/) ---- /)) {
        flush()
        title = substr($0, RLENGTH + 1)
        sub(/ *-+.*$/, "", title)
        if (title ~ /^(Parts of the above|The wire)/) finished = 1
        else print "\n## " title
        next
    }
    if (in_assertion || (depth == 0 && $0 ~ /^(static_assert|DLL_WIRE)/)) {
        in_assertion = $0 !~ /;/
        next
    }
    if (in_macro) {
        in_macro = $0 ~ /\\$/
        next
    }
    if (depth == 0 && !in_comment && $0 == "") { flush(); next }
    if (depth == 0 && !in_comment && is_left_out($0)) next
    if (depth == 0 && chunk_code == "" && (in_comment || $0 ~ /^(\/\*|\/\/)/)) {
        in_comment = $0 !~ /\*\/ *$/ && $0 !~ /^\/\//
        text = comment_text($0)
        if ($0 !~ /^\/\//) sub(/^   /, "", text)
        chunk_comment = chunk_comment paragraph(text)
        next
    }
    if ($0 ~ /^#define .*\\$/) {
        in_macro = 1
        sub(/ *\\$/, "")
        if ($0 ~ /\)/) sub(/\).*/, ")")
        chunk_code = chunk_code $0 "\n"
        next
    }
    if ($0 ~ /^#define [A-Z_]+\(/) sub(/\).*/, ")")
    depth += braces($0)
    chunk_code = chunk_code $0 "\n"
}

END { if (!finished) flush() }
