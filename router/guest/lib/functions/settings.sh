# SPDX-License-Identifier: ISC
# The router's stored settings (/etc/config) and the files the scripts make of them for others.
# shellcheck shell=sh

# setting PACKAGE SECTION OPTION: prints the value, nothing when it is not set.
setting() {
    awk -v section="$2" -v option="$3" '
        function unquoted(text) {
            gsub(/\047\\\047\047/, "\001", text)
            gsub(/\047/, "", text)
            gsub(/\001/, "\047", text)
            return text
        }
        $1 == "config" { inside = (unquoted($3) == section) }
        inside && $1 == "option" && $2 == option {
            text = $0
            sub(/^[ \t]*option[ \t]+[^ \t]+[ \t]*/, "", text)
            value = unquoted(text)
        }
        END { print value }' "/etc/config/$1"
}

# set_setting PACKAGE SECTION OPTION VALUE: replaces the value, or adds the option.
set_setting() {
    # shellcheck disable=SC2016  # the program is awk's, not the shell's
    set_line=$(printf "\toption %s '%s'" "$3" "$(printf '%s' "$4" | sed "s/'/'\\\\''/g")") \
        awk -v section="$2" -v option="$3" '
        function add() { if (inside && !done) { print ENVIRON["set_line"]; done = 1 } }
        $1 == "config" { add(); name = $3; gsub(/\047/, "", name); inside = (name == section) }
        inside && $1 == "option" && $2 == option { add(); next }
        NF == 0 { add() }
        { print }
        END { add() }' "/etc/config/$1" >"/etc/config/$1.new"
    mv "/etc/config/$1.new" "/etc/config/$1"
}

# Tables of the two bands.
BANDS="2g 5g"
band_package() { case $1 in 2g) echo wifi2G_Cfg ;; 5g) echo wifi5G_Cfg ;; esac; }
band_interface() { case $1 in 2g) echo wlan1 ;; 5g) echo wlan0 ;; esac; }
band_address() { case $1 in 2g) echo 192.168.2.1 ;; 5g) echo 192.168.5.1 ;; esac; }
band_setting() { setting "$(band_package "$1")" settings2 "$2"; }
set_band_setting() { set_setting "$(band_package "$1")" settings2 "$2" "$3"; }

# security_number TEXT: the number by which /tmp/wifi.conf names a security.
security_number() {
    case $1 in
    none) echo 0 ;;
    wpa | wpa2 | wpa/wpa2) echo 1 ;;
    wpa3 | wpa2/wpa3) echo 4 ;;
    owe) echo 5 ;;
    *) echo 0 ;;
    esac
}

# write_wps_conf: the switches of Wi-Fi Protected Setup.
write_wps_conf() {
    for option in enabled apWpsAvailable staWpsAvailable pinEnabled pinCode; do
        echo "$option=$(setting wpsCfg settings "$option")"
    done >/tmp/wps.conf
}

# write_wifi_conf: blocks apart by exactly one blank line; readers find their block by counting.
write_wifi_conf() {
    {
        echo "productName=$(setting wpsCfg settings productName)"
        echo
        for band in $BANDS; do
            echo "wlanSecType_$band=$(security_number "$(band_setting "$band" security)")"
            echo "apBssEnabledApMode_$band=$(band_setting "$band" apBssEnabled)"
            echo "apBssEnabled_$band=$(band_setting "$band" apBssEnabled)"
        done
        echo
        for band in $BANDS; do
            echo "staBssEnabled_$band=$(setting "$(band_package "$band")" settings1 staBssEnabled)"
        done
    } >/tmp/wifi.conf
}

# write_device_files: what other services of a router leave in /tmp at boot.
write_device_files() {
    echo "{\"RFBand\": $(setting wpsCfg settings rfBand)}" >/tmp/device.info
    echo "{\"mode\": $(setting wpsCfg settings mode)}" >/tmp/device_runtime.info
}
