# Reads the sources and prints a node for each public header, and an edge for each one that another
# header, or its source, includes.
# What both need from each other is one edge with two heads. Internal headers are left out: their
# users include what these need.

FNR == 1 {
    from = FILENAME
    sub(/.*\//, "", from)
    is_header = from ~ /[.]h$/
    from = facility(from)
    if (is_header && from != "" && FILENAME !~ /stackblock/) {
        page = from
        gsub(/_/, "__", page)
        print from " [label=\"" from ".h\", URL=\"group__" page ".html\"]"
    }
}

/^#include "/ {
    to = $2
    gsub(/"/, "", to)
    to = facility(to)
    if (from != to && from != "" && to != "")
        needs[from, to] = needs[from, to] + (is_header ? 2 : 1)
}

END {
    for (pair in needs) {
        split(pair, end, SUBSEP)
        back = end[2] SUBSEP end[1]
        if (!(back in needs))
            print end[1] " -> " end[2]
        else if (needs[pair] > needs[back])
            print end[1] " -> " end[2] " [dir=both]"
    }
}

function facility(file)
{
    if (file ~ /^(zqplatform|zqexport|zqscan|zqspan|zqnumbertext|.*_kernels)[.]/)
        return ""
    sub(/[.].*/, "", file)
    return file == "fileops" ? "file" : file == "zqstackblock" ? "zqlimitedstack" : file
}
