# Doxygen's input filter, behind headers.awk: the header with comments as Doxygen reads them. Each
# header becomes a group, so that all of it stands on one page.

function head()
{
    page = FILENAME
    sub(/.*\//, "", page)
    print "/** \\file"
    print " *  \\brief \\ref " group() " \"" page "\""
    print " */"
    print "/// \\defgroup " group() " " page
    document()
    if (group() == "zqplatform")
        print "/// \\namespace ZQPlatform\n/// All of the library: see the pages of its headers."
    print ""
}

function section()
{
    end_section()
    print "/// \\name " marked(section_title())
    latest = ""
    describe()
    printf "%s///\n/// @{\n", latest
    in_section = 1
}

function declared(how)
{
    if (how == "own" && bannered)
        end_section()
    if (how == "own")
        document()
    else if (how == "shared")
        printf "%s", latest
    else if (how == "overload" || how == "again")
        print "/// \\details As the overload above."
    else if (how == "deleted")
        print "/// " (name ~ /operator/ ? "No assignment." : "No copies.")
    if (how == "trailing")
        sub(/  \/\/ .*/, "  ///< " bracketless(marked(behind)), code[codes])
    print_code()
    if (name == "ZQPlatform" && declaration_kind == "namespace")
        print "/// \\addtogroup " group() "\n/// @{"
}

function other(    i)
{
    for (i = 1; i <= comments; ++i)
        print raw[i]
    if (code[1] ~ /^}  \/\/ namespace ZQPlatform$/) {
        end_section()
        print "/// @}"
    }
    print_code()
}

function end_section()
{
    if (in_section)
        print "/// @}\n"
    in_section = 0
}

function print_code(    i)
{
    for (i = 1; i <= codes; ++i)
        print code[i]
}

function group()
{
    return substr(page, 1, length(page) - 2)
}

# The comment as documentation: its first sentence for lists, and all of it for the description.
function document()
{
    latest = ""
    out("\\brief " marked(first_sentence()))
    out("")
    describe()
    printf "%s", latest
}

function describe(    i, last, kind)
{
    previous_kind = ""
    for (i = 1; i <= comments; ++i) {
        kind = line_kind(i)
        if (kind == "example") {
            last = example_end(i)
            out("\\code" language(i, last))
            for (; i <= last; ++i)
                out(substr(comment[i], 3))
            out("\\endcode")
            --i
        } else if (kind == "item") {
            match(comment[i], /^  [A-Za-z]+ +/)
            out("- **" trimmed(substr(comment[i], 1, RLENGTH)) "** " \
                marked(substr(comment[i], RLENGTH + 1)))
        } else if (kind == "more") {
            out("  " marked(trimmed(comment[i])))
        } else {
            out(marked(comment[i]))
        }
        previous_kind = kind
    }
}

function out(line)
{
    latest = latest "/// " line "\n"
}

function language(from, to)
{
    for (; from <= to; ++from)  # a statement, and no table
        if (comment[from] ~ /;( *\/\/.*)?$/ && comment[from] !~ /[^ ]   +[^ \/]/)
            return "{.cpp}"
    return "{.unparsed}"
}

# Plain text, with what Doxygen takes for markup escaped; 'name' becomes a parameter's name.
function marked(s)
{
    gsub(/[\\<>&@#%$*]/, "\\\\&", s)
    gsub(/"/, "\\&quot;", s)  # a string in quotation marks would keep its escapes
    s = quoted_names(s)
    gsub(/Deliberate:/, "**Deliberate:**", s)
    return linked(s)
}

function quoted_names(s,    done)
{
    done = ""
    while (match(s, /'[A-Za-z][A-Za-z0-9]*'/)) {
        done = done substr(s, 1, RSTART - 1) "<em>" substr(s, RSTART + 1, RLENGTH - 2) "</em>"
        s = substr(s, RSTART + RLENGTH)
    }
    return done s
}

# Names of headers and guides lead to their pages.
function linked(s,    done, file, page)
{
    done = ""
    while (match(s, /(zq[a-z_]+|binary_io|gzstream_[a-z]+|hostinfo_common)[.]h|docs\/[a-z-]+[.]md/)) {
        file = substr(s, RSTART, RLENGTH)
        page = file
        gsub(/docs\/|[.].*/, "", page)
        done = done substr(s, 1, RSTART - 1) "\\ref " page " \"" file "\""
        s = substr(s, RSTART + RLENGTH)
    }
    return done s
}

# For the replacement of sub().
function bracketless(s)
{
    gsub(/\\/, "\\\\", s)
    gsub(/&/, "\\\\&", s)
    return s
}
