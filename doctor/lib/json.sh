# SPDX-License-Identifier: ISC
# A JSON text of any bytes.
# shellcheck shell=dash
# shellcheck disable=SC3043  # busybox ash has local

# json_text TEXT: prints a JSON string of any bytes. Bytes that are no UTF-8 become U+FFFD.
json_text() {
	case $1 in
	*[!\ !#-Z^-~[]*) ;;
	*) printf '"%s"\n' "$1" && return ;;
	esac
	printf '%s' "$1" | hexdump -v -e '1/1 "%u\n"' | awk '
		# How many bytes follow the first of a sequence, and the range of the second: no overlong form,
		# no surrogate, nothing above U+10FFFF.
		function follows(first) {
			low = first == 224 ? 160 : first == 240 ? 144 : 128
			high = first == 237 ? 159 : first == 244 ? 143 : 191
			return first < 194 || first > 244 ? -1 : first < 224 ? 1 : first < 240 ? 2 : 3
		}
		function put(i, last) { for (; i <= last; i++) printf "%c", byte[i] }
		{ byte[NR] = $1 + 0 }
		END {
			printf "\""
			for (i = 1; i <= NR; i++) {
				b = byte[i]
				if (b == 34 || b == 92) { printf "\\%c", b; continue }
				if (b < 32 || b == 127) { printf "\\u%04x", b; continue }
				if (b < 128) { printf "%c", b; continue }
				more = follows(b)
				good = more > 0 && i + more <= NR
				for (k = 1; good && k <= more; k++) {
					good = byte[i + k] >= low && byte[i + k] <= high
					low = 128; high = 191
				}
				if (!good) { printf "\357\277\275"; continue }
				put(i, i + more)
				i += more
			}
			printf "\"\n"
		}'
}
