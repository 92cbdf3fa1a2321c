# SPDX-License-Identifier: ISC
# Reads the flat JSON objects that services leave in /tmp.
# shellcheck shell=sh

# json_members FILE: one line "KEY<tab>VALUE" for each member whose value is a text or a number.
json_members() {
    awk '
        function text_at(    out, c, code) {
            out = ""
            for (at++; at <= length(all); at++) {
                c = substr(all, at, 1)
                if (c == "\"") { at++; return out }
                if (c != "\\") { out = out c; continue }
                c = substr(all, ++at, 1)
                if (c == "u") {
                    code = substr(all, at + 1, 4)
                    at += 4
                    out = out sprintf("%c", number_of(code))
                } else
                    out = out (c == "n" ? "\n" : c == "t" ? "\t" : c)
            }
            return out
        }
        function number_of(hex,    i, n) {
            n = 0
            for (i = 1; i <= length(hex); i++)
                n = n * 16 + index("0123456789abcdef", tolower(substr(hex, i, 1))) - 1
            return n
        }
        { all = all $0 }
        END {
            at = 1
            key = ""
            while (at <= length(all)) {
                c = substr(all, at, 1)
                if (c == "\"") {
                    text = text_at()
                    if (key == "") key = text
                    else { printf "%s\t%s\n", key, text; key = "" }
                } else if (key != "" && match(substr(all, at), /^-?[0-9][0-9.]*/)) {
                    printf "%s\t%s\n", key, substr(all, at, RLENGTH)
                    key = ""
                    at += RLENGTH
                } else
                    at++
            }
        }' "$1"
}

# json_member FILE KEY: the value of one member, nothing when there is none.
json_member() {
    json_members "$1" | awk -F '\t' -v key="$2" '$1 == key { sub(/^[^\t]*\t/, ""); print; exit }'
}
