# Writes the manual page of a header, behind headers.awk, to the directory 'dir', and prints its name
# behind each name of a class, a function or an object that is described there. 'version' is the
# library's, 'pages' the list of all pages.

function head(    summary)
{
    header = FILENAME
    sub(/.*\//, "", header)
    page = substr(header, 1, length(header) - 2)
    if (page !~ /^zq/)
        page = "zq" page
    file = dir "/" page ".3"
    put(".TH " toupper(page) " 3 \"\" \"libzqplatform " version "\" \"libzqplatform\"")
    put(".ad l\n.nh")
    put(".SH NAME")
    summary = first_sentence()
    sub(/[.]$/, "", summary)
    put(page " \\- " marked(summary))
    put(".SH SYNOPSIS\n.nf")
    put("\\fB#include <zqplatform/" header ">\\fR")
    put("g++ \\-std=c++17 \\fIprogram\\fR.cpp $(pkg\\-config \\-\\-cflags \\-\\-libs zqplatform)\n.fi")
    put(".SH DESCRIPTION")
    put(formatted())
    title_due = 1
}

function section()
{
    finish_entry()
    heading(section_title())
    put(formatted())
}

function declared(how)
{
    if (how == "bare" && text ~ /^(using|class|namespace)/)
        return
    if (how == "bare" && text !~ / override;$/ && kind[scopes] != "enum") {
        print FILENAME ": " name " has no comment" >"/dev/stderr"
        failed = 1
    }
    if (declaration_kind ~ /class|struct/ && text !~ /;$/) {
        finish_entry()
        heading(cleaned(text))
        in_class = name
        members = "public:"
        alias(name)
        put(formatted())
        return
    }
    if (how == "bare" && kind[scopes] != "enum")
        return
    if (how !~ /overload|shared|bare/ && !(how == "deleted" && lines[entry] ~ / = delete$/))
        finish_entry()
    begin_entry()
    lines[++entry] = cleaned(text)
    if (how == "own")
        documentation = formatted()
    else if (how == "trailing")
        documentation = protected(marked(behind))
    else if (how == "again")
        documentation = "As the overload above."
    if (kind[scopes] == "namespace" || scopes == 0)
        alias(name)
}

function other()
{
    if (code[1] ~ /^}/) {
        finish_entry()
        if (in_class != "")
            heading("")
        in_class = ""
    }
}

END {
    finish_entry()
    put(".SH SEE ALSO")
    put((page == "zqplatform" ? pages : "\\fBzqplatform\\fR(3)"))
    exit failed
}

# ---- entries: declarations with the text that they share

function begin_entry(    now)
{
    if (entry > 0)
        return
    now = access[scopes]
    if (in_class == "" && title_due)
        heading("DECLARATIONS")
    if (in_class != "" && now != members)
        put(".SS " (now == "public:" ? "Public members" : "Members for derived classes"))
    members = now
}

function finish_entry(    i)
{
    if (entry == 0)
        return
    if (next_heading == "" && last_put !~ /^[.]SS /)
        put(".PP")
    for (i = 1; i <= entry; ++i)
        put((i > 1 ? ".br\n" : "") "\\fB" literal(lines[i]) "\\fR")
    if (documentation != "")
        put(".RS 4\n" documentation "\n.RE")
    entry = 0
    documentation = ""
}

function heading(title)
{
    title_due = title == ""
    next_heading = title_due ? "" : ".SH " literal(title)
}

function cleaned(s)
{
    gsub(/ZQPLATFORM_EXPORT |inline /, "", s)
    sub(/\) : .*/, ")", s)
    sub(/[;,]$/, "", s)
    return s
}

function alias(name)
{
    if (name ~ /^[A-Za-z_]+$/ && name != "Name" && !(name in aliases) && text !~ /^(struct|typedef)/)
        print name, page
    aliases[name] = 1
}

# ---- text

function put(s)
{
    if (s == "")
        return
    if (next_heading != "") {  # sections that hold classes alone have no heading
        print next_heading >file
        next_heading = ""
    }
    print s >file
    last_put = s
}

function formatted(    i, last, kind)
{
    result = ""
    previous_kind = ""
    for (i = 1; i <= comments; ++i) {
        kind = line_kind(i)
        if (previous_kind ~ /item|more/ && kind !~ /item|more/)
            add(".PD\n.RE")
        if (kind == "example") {
            last = example_end(i)
            add(".PP\n.RS 4\n.nf")
            for (; i <= last; ++i)
                add(protected(literal(substr(comment[i], 3))))
            add(".fi\n.RE")
            --i
        } else if (kind == "item") {
            if (previous_kind !~ /item|more/)
                add(".RS 0\n.PD 0")
            match(comment[i], /^  [A-Za-z]+ +/)
            add(".TP 10\n" trimmed(substr(comment[i], 1, RLENGTH)))
            add(protected(marked(substr(comment[i], RLENGTH + 1))))
        } else if (kind == "text") {
            if (result != "" && previous_kind != "text")
                add(".PP")
            add(protected(marked(comment[i])))
        } else if (kind == "more") {
            add(protected(marked(trimmed(comment[i]))))
        }
        previous_kind = kind
    }
    if (previous_kind ~ /item|more/)
        add(".PD\n.RE")
    return substr(result, 2)
}

function add(s)
{
    result = result "\n" s
}

function literal(s)
{
    gsub(/\\/, "\\e", s)
    gsub(/-/, "\\-", s)
    gsub(/'/, "\\(aq", s)
    gsub(/`/, "\\(ga", s)
    gsub(/~/, "\\(ti", s)
    gsub(/\^/, "\\(ha", s)
    return s
}

function marked(s,    done)
{
    done = ""
    while (match(s, /'[A-Za-z][A-Za-z0-9]*'/)) {
        done = done literal(substr(s, 1, RSTART - 1)) \
               "\\fI" substr(s, RSTART + 1, RLENGTH - 2) "\\fR"
        s = substr(s, RSTART + RLENGTH)
    }
    s = done literal(s)
    gsub(/Deliberate:/, "\\fB&\\fR", s)
    return s
}

# A line of text that begins with a dot is no request.
function protected(s)
{
    return (s ~ /^[.]/ ? "\\&" : "") s
}
