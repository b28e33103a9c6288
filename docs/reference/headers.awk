# Reads a public header, whose comments are its manual, and hands it on piece by piece:
#
#   head()         the comment that opens the file
#   section()      a comment that stands alone and begins with "// ---- "
#   declared(how)  a declaration outside function bodies and private parts
#   other()        everything else
#
# comment[1..comments] is the comment without its slashes, code[1..codes] are the lines of code,
# 'text' is the declaration and 'name' what it declares; 'bannered' tells whether the comment begins
# with "// ---- ". 'how' tells what documents the declaration:
#
#   own          the comment above it
#   trailing     the comment behind it, in 'behind'
#   shared       the comment of the declaration above, which has another name, with no blank line
#                between the two; overriding functions and destructors share nothing
#   overload     the same, of the same name
#   again        that of an earlier function of the same name in the namespace
#   deleted      nothing: "= delete" says it
#   bare         nothing

BEGIN {
    head_ended = 0
    comments = codes = body = scopes = 0
    adjacent = 0
}

# ---- comments

body == 0 && codes == 0 && /^ *\/\/( |$)/ {
    line = $0
    sub(/^ *\/\/ ?/, "", line)
    comment[++comments] = line
    raw[comments] = $0
    next
}

comments && !head_ended { finish_head() }

# ---- code

{ plain = uncommented($0) }

body > 0 {
    body += braces(plain)
    code[codes = 1] = $0
    pass()
    next
}

codes == 0 && plain ~ /^$/ {
    if (comments && comment[1] ~ /^---- /) {
        sub(/^---- /, "", comment[1])
        section()
        comments = 0
    }
    pass_line()
    adjacent = shareable = 0
    next
}

codes == 0 && /^ *(#|\/\/|(public|protected|private):)|^ *}/ {
    if (/^ *(public|protected|private):/)
        access[scopes] = $1
    if (/^ *}/)
        close_scope()
    else
        pass_line()
    next
}

{
    code[++codes] = $0
    text = text (codes > 1 ? " " : "") trimmed(substr($0, 1, length(plain)))
    if (opens_scope(text)) {
        declaration()
        open_scope()
    } else if (braces(plain) > 0) {
        body = braces(plain)
        declaration()
    } else if (text ~ /[;}]$/ || (kind[scopes] == "enum" && text ~ /(,|[A-Za-z0-9])$/)) {
        declaration()
    }
}

END {
    if (comments && !head_ended)
        finish_head()
}

function finish_head()
{
    head_ended = 1
    head()
    comments = 0
}

function declaration(    how)
{
    name = declared_name(text)
    sub(/ *\{.*/, "", text)
    behind = ""
    if (code[codes] ~ /[;,A-Za-z0-9]  +\/\/ /) {
        behind = code[codes]
        sub(/.*[;,A-Za-z0-9]  +\/\/ /, "", behind)
    }
    if (is_private() || index(text, "::" name "(") || (name ~ /::/ && declaration_kind == ""))
        how = ""  # what is defined outside its class has its comment there
    else if (comments)
        how = "own"
    else if (behind != "")
        how = "trailing"
    else if (text ~ /= delete;$/)
        how = "deleted"
    else if (adjacent && shareable && text !~ / override;?$/ && name !~ /~/)
        how = name == shared_name ? "overload" : "shared"
    else if (kind[scopes] == "namespace" && (name in documented))
        how = "again"
    else
        how = "bare"

    bannered = how == "own" && sub(/^---- /, "", comment[1])
    if (how == "")
        pass()
    else
        declared(how)
    if (how == "own") {
        shareable = 1
        shared_name = name
        if (kind[scopes] == "namespace")
            documented[name] = 1
    } else if (how != "overload" && how != "shared") {
        shareable = 0
    }
    adjacent = 1
    comments = codes = 0
    text = ""
}

function pass_line()
{
    code[codes = 1] = $0
    pass()
}

# Code, and comments before it that document nothing, as they are.
function pass()
{
    other()
    comments = codes = 0
}

# ---- scopes

function opens_scope(text)
{
    return text ~ /^(template <[^>]*> )?(class|struct|enum|namespace)[ :].*\{$/ ||
           text ~ /^extern "C" \{$/
}

function open_scope()
{
    kind[++scopes] = declaration_kind
    access[scopes] = declaration_kind == "class" ? "private:" : "public:"
    adjacent = shareable = 0
}

function close_scope()
{
    closing = kind[scopes]
    if (scopes > 0)
        --scopes
    pass_line()
    adjacent = shareable = 0
}

function is_private(    i)
{
    for (i = 1; i <= scopes; ++i)
        if (access[i] == "private:")
            return 1
    return 0
}

# ---- text

function trimmed(s)
{
    sub(/^ +/, "", s)
    sub(/ +$/, "", s)
    return s
}

# The line without its comment, with characters and strings blotted out; empty if nothing is left.
function uncommented(s,    i)
{
    gsub(/'\\?.'/, "' '", s)
    while (match(s, /"([^"\\]|\\.)+"/)) {
        for (i = RSTART; i < RSTART + RLENGTH; ++i)
            s = substr(s, 1, i - 1) "_" substr(s, i + 1)
    }
    sub(/ *\/\/.*/, "", s)
    return s ~ /^ *$/ ? "" : s
}

function braces(s)
{
    return gsub(/\{/, "", s) - gsub(/}/, "", s)
}

function declared_name(s,    m)
{
    declaration_kind = ""
    if (match(s, /^(template <[^>]*> )?(class|struct|enum|namespace)[ :]/)) {
        m = substr(s, 1, RLENGTH)
        declaration_kind = m ~ /class[ :]$/ ? "class" : m ~ /struct[ :]$/ ? "struct" : \
                           m ~ /enum[ :]$/ ? "enum" : "namespace"
        s = substr(s, RLENGTH + 1)
        sub(/ZQPLATFORM_EXPORT /, "", s)
        sub(/( :|[{;]).*/, "", s)
        return trimmed(s)
    }
    if (match(s, /operator *[^ (]+/))
        return substr(s, RSTART, RLENGTH)
    while (sub(/<[^<>]*>/, "", s))
        ;
    sub(/[(=;{\[,].*/, "", s)
    s = trimmed(s)
    match(s, /[A-Za-z_0-9:~]+$/)
    return substr(s, RSTART, RLENGTH)
}

# The first sentence of the comment, on one line.
function first_sentence(    i, s)
{
    s = comment[1]
    for (i = 2; i <= comments && comment[i] !~ /^(  .*)?$/; ++i)
        s = s " " comment[i]
    if (match(s, /[.?!] [A-Z]/))
        s = substr(s, 1, RSTART)
    return s
}

# Takes the title of a section, its first sentence, off its comment.
function section_title(    title)
{
    title = comment[1]
    comment[1] = ""
    if (match(title, /[.] /)) {
        comment[1] = substr(title, RSTART + 2)
        title = substr(title, 1, RSTART - 1)
    }
    sub(/[.]$/, "", title)
    return title
}

# What line i of the comment is: "" (blank), "item" (one word, its text), "more" (of the item),
# "example" or "text".
function line_kind(i,    s)
{
    s = comment[i]
    if (s ~ /^ *$/)
        return ""
    if (s ~ /^  (Called|Success|Failure|Default|Result|opener|closer)   */)
        return "item"
    if (s !~ /^  /)
        return "text"
    return (i > 1 && (previous_kind == "item" || previous_kind == "more")) ? "more" : "example"
}

# The example that begins at line i goes on to the line that is returned.
function example_end(i,    last)
{
    for (last = i; ++i <= comments;) {
        if (comment[i] ~ /^  /)
            last = i
        else if (comment[i] !~ /^ *$/)
            break
    }
    return last
}
