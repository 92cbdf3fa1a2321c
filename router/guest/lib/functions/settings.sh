# SPDX-License-Identifier: ISC
# The router's stored settings (/etc/config) and the files the scripts make of them for others.
# shellcheck shell=sh

# load_settings: reads all packages into shell variables, in one go, for each further program costs
# this slow guest a hundredth of a second. The values stand in the files as a shell quotes them.
load_settings() {
    eval "$(awk '
        FNR == 1 { package = FILENAME; sub(/.*\//, "", package) }
        $1 == "config" { section = $3; gsub(/\047/, "", section) }
        $1 == "option" {
            name = "cfg_" package "_" section "_" $2
            sub(/^[ \t]*option[ \t]+[^ \t]+[ \t]*/, "")
            print name "=" $0
        }' /etc/config/*)"
}

# setting PACKAGE SECTION OPTION: prints the value as last loaded, nothing when it is not set.
setting() {
    eval "printf '%s\\n' \"\${cfg_$1_$2_$3:-}\""
}

# set_settings PACKAGE SECTION: takes "OPTION<tab>VALUE" lines from the standard input; replaces
# the options' values or adds them.
set_settings() {
    awk -v section="$2" '
        function quoted(text) {
            gsub(/\047/, "\047\\\047\047", text)
            return "\047" text "\047"
        }
        function add_missing(    name) {
            if (inside)
                for (name in changes)
                    if (!(name in written)) print "\toption " name " " quoted(changes[name])
            inside = 0
        }
        FILENAME == "-" {
            name = $1
            sub(/^[^\t]*\t/, "")
            changes[name] = $0
            next
        }
        $1 == "config" {
            add_missing()
            name = $3
            gsub(/\047/, "", name)
            inside = (name == section)
        }
        NF == 0 { add_missing() }
        inside && $1 == "option" && ($2 in changes) {
            written[$2] = 1
            print "\toption " $2 " " quoted(changes[$2])
            next
        }
        { print }
        END { add_missing() }' - "/etc/config/$1" >"/etc/config/$1.new"
    mv "/etc/config/$1.new" "/etc/config/$1"
}

# set_setting PACKAGE SECTION OPTION VALUE: the same for one option.
set_setting() {
    printf '%s\t%s\n' "$3" "$4" | set_settings "$1" "$2"
}

# Tables of the bands. A router with 6 GHz has settings for it.
BANDS="2g 5g"
[ ! -e /etc/config/wifi6G_Cfg ] || BANDS="$BANDS 6g"
band_package() {
    case $1 in 2g) echo wifi2G_Cfg ;; 5g) echo wifi5G_Cfg ;; 6g) echo wifi6G_Cfg ;; esac
}
band_interface() { case $1 in 2g) echo wlan1 ;; 5g) echo wlan0 ;; esac; }
band_address() { case $1 in 2g) echo 192.168.2.1 ;; 5g) echo 192.168.5.1 ;; esac; }
band_setting() { setting "$(band_package "$1")" settings2 "$2"; }
is_repeater() { [ "$(setting wpsCfg settings mode)" = 0 ]; }

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
