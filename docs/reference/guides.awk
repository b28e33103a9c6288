# Doxygen's input filter for the guides: headings can be linked to as everywhere else, names of
# headers lead to their pages, and a line <!-- figure: NAME --> becomes that figure, in place of the
# drawing in characters behind it, if there is one. What stands between backquotes ends on its line.

BEGIN {
    public["zqplatform.h"] = public["zqexport.h"] = 1
    while ((getline line <"../../platform/zqplatform.h") > 0)
        if (sub(/^#include "/, "", line))
            public[substr(line, 1, length(line) - 1)] = 1
}

FNR == 1 {
    page = FILENAME
    sub(/.*\//, "", page)
}

/^```/ { inside = !inside }
replaced && /^(    .*)?$/ { next }
{ replaced = 0 }
inside || /^    / { print; next }

/^<!-- figure: [a-z]+ -->$/ {
    print "\\htmlinclude " $3 ".svg\n"
    replaced = 1
    next
}

/^# / && page != "README.md" {
    print $0 " {#" substr(page, 1, length(page) - 3) "}"
    next
}

/^##+ / {
    title = $0
    gsub(/`/, "", title)
    gsub(/[<>&]/, "\\\\&", title)
    print title " {#" anchor(page, substr($0, index($0, " ") + 1)) "}"
    next
}

{
    while (match($0, /\]\(([a-zA-Z.\/-]*[.]md)?(#[a-z0-9-]+)?\)/)) {
        target = substr($0, RSTART + 2, RLENGTH - 3)
        $0 = substr($0, 1, RSTART) "(@ref " label(target) ")" substr($0, RSTART + RLENGTH)
    }
    print coded($0)
}

# Code between backquotes: names of streams and headers lead to their pages, anything else becomes a
# tag with nothing in it that Doxygen takes for markup.
function coded(s,    done, code)
{
    done = ""
    while (match(s, /`[^`]+`/)) {
        code = substr(s, RSTART + 1, RLENGTH - 2)
        done = done substr(s, 1, RSTART - 1)
        s = substr(s, RSTART + RLENGTH)
        if (code in public)
            done = done "\\ref " substr(code, 1, length(code) - 2) " \"" code "\""
        else if (code ~ /^zq[a-z]*stream$/)
            done = done "\\ref ZQPlatform::" code " \"" code "\""
        else
            done = done "<code>" literal(code) "</code>"
    }
    return done s
}

function literal(code)
{
    gsub(/[\\@#%]/, "\\\\&", code)
    gsub(/&/, "\\&amp;", code)
    gsub(/</, "\\&lt;", code)
    gsub(/>/, "\\&gt;", code)
    gsub(/"/, "\\&quot;", code)
    gsub(/'/, "\\&apos;", code)
    gsub(/!std::/, "!std\\::", code)  # asks for a link, too
    return code
}

# Where a link to a guide, to a heading of one, or to a heading of this one leads.
function label(target,    file, heading)
{
    sub(/^.*\//, "", target)
    file = heading = target
    sub(/#.*/, "", file)
    if (!sub(/^[^#]*#/, "", heading))
        return file == "README.md" ? "index" : substr(file, 1, length(file) - 3)
    return anchor(file == "" ? page : file, heading)
}

function anchor(file, heading)
{
    sub(/[.]md$/, "", file)
    heading = tolower(heading)
    gsub(/[^a-z0-9 -]/, "", heading)
    gsub(/ /, "-", heading)
    return tolower(file) "-" heading
}
