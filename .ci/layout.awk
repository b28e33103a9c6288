# Reads 'readelf --debug-dump=info' and prints a line for each size, base class, data member and
# virtual slot of the classes in namespace ZQPlatform:
#
#   ZQPlatform::zqstream  at  65600  _ptr     bytes; slots are counted from 0

/^ *<[0-9a-f]+><[0-9a-f]+>: Abbrev Number/ {
    take()
    split($1, part, /[<>]/)
    level = part[2]
    id = part[4]
    tag = $NF
    name = linkage = size = place = align = type = slot = ""
}
/ DW_AT_(linkage_)?name *:/ {
    text = $0
    sub(/^[^:]*: (\(.*\): )?/, "", text)
    if (/linkage/) linkage = text; else name = text
}
/ DW_AT_byte_size *:/ { size = number($NF) }
/ DW_AT_alignment *:/ { align = "  align " $NF }
/ DW_AT_data_member_location *:/ { place = number($NF) }
/ DW_AT_type *:/ { type = $NF; gsub(/[<>]|0x/, "", type) }
/ DW_AT_vtable_elem_location *:/ { slot = $NF + 0 }

END {
    take()
    for (i = 0; i < count; ++i)
        print fact[i] (i in base ? names[base[i]] : "")
}

# Takes what the lines since the last entry said. The entry of a base class may follow later.
function take(    within)
{
    within = level > 1 ? scope[level - 1] : ""
    if (tag ~ /namespace|class_type|structure_type|union_type/) {
        scope[level] = names[id] = (within == "" ? "" : within "::") name
        if (size != "") add(names[id], "size", size, align)
    } else if (tag ~ /inheritance/) {
        base[count] = type
        add(within, "base", place, "")
    } else if (tag ~ /member/ && place != "") {
        add(within, "at", place, name align)
    } else if (slot != "") {
        add(within, "slot", slot, linkage)
    }
}

function add(class, what, where, rest)
{
    if (class ~ /^ZQPlatform::/) fact[count++] = class "  " what "  " where "  " rest
}

function number(text,    i, value)
{
    if (text !~ /^0x/) return text + 0
    for (i = 3; i <= length(text); ++i)
        value = value * 16 + index("123456789abcdef", substr(text, i, 1))
    return value
}
