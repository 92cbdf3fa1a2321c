# SPDX-License-Identifier: ISC
# What netifd and its wireless scripts make of /etc/config/wireless. Source /lib/functions.sh and
# call config_load wireless first.
# shellcheck shell=sh
# shellcheck disable=SC2034,SC2154  # netifd reads MEMORY; config_get gives variables their values

# netifd's own memory: for each radio a folder with what is set up, and its state.
MEMORY=/run/netifd
RUN=/var/run

# bytes_as_hex TEXT
bytes_as_hex() { printf '%s' "$1" | hexdump -v -e '1/1 "%02x"'; }

# radios: the names of the wifi-device sections, in the file's order.
radios() { config_foreach echo wifi-device; }

is_disabled() {
    config_get_bool netifd_off "$1" disabled 0
    [ "$netifd_off" = 1 ]
}

# each_interface RADIO COMMAND: COMMAND SECTION MODE IFNAME for each enabled wifi-iface of the radio.
each_interface() {
    netifd_aps=0
    netifd_stations=0
    config_foreach each_interface_of wifi-iface "$1" "$2"
}

each_interface_of() {
    config_get netifd_devices "$1" device
    list_contains netifd_devices "$2" || return 0
    ! is_disabled "$1" || return 0
    config_get netifd_phy "$2" phy
    config_get netifd_mode "$1" mode
    case $netifd_mode in
    ap)
        config_get netifd_name "$1" ifname "$netifd_phy-ap$netifd_aps"
        netifd_aps=$((netifd_aps + 1))
        ;;
    sta)
        config_get netifd_name "$1" ifname "$netifd_phy-sta$netifd_stations"
        netifd_stations=$((netifd_stations + 1))
        ;;
    *) return 0 ;;
    esac
    "$3" "$1" "$netifd_mode" "$netifd_name"
}

# key_line SECTION KEY-OPTION PASSPHRASE-OPTION: a key of 64 digits is the key itself.
key_line() {
    config_get netifd_key "$1" key
    if [ "${#netifd_key}" -eq 64 ]; then
        printf '%s=%s\n' "$2" "$netifd_key"
    else
        printf '%s=%s\n' "$3" "$netifd_key"
    fi
}

security_lines() {
    config_get netifd_encryption "$1" encryption none
    case ${netifd_encryption%%+*} in
    none | owe) return 0 ;;
    psk) printf '%s\n' wpa=1 wpa_key_mgmt=WPA-PSK "wpa_pairwise=CCMP" ;;
    psk2) printf '%s\n' wpa=2 wpa_key_mgmt=WPA-PSK wpa_pairwise=CCMP ;;
    psk-mixed) printf '%s\n' wpa=3 wpa_key_mgmt=WPA-PSK wpa_pairwise=CCMP ;;
    sae-mixed) printf '%s\n' wpa=2 "wpa_key_mgmt=SAE WPA-PSK" wpa_pairwise=CCMP ieee80211w=1 ;;
    sae) printf '%s\n' wpa=2 wpa_key_mgmt=SAE wpa_pairwise=CCMP ieee80211w=2 ;;
    *) emit script "netifd: no rule for encryption $netifd_encryption" ;;
    esac
    key_line "$1" wpa_psk wpa_passphrase
    case $netifd_encryption in
    psk* | sae-mixed*) echo "wpa_psk_file=$RUN/hostapd-$2.psk" ;;
    esac
}

# Without one of the two methods there are no WPS lines at all.
wps_lines() {
    hostapd -vwps || return 0
    config_get_bool netifd_button "$1" wps_pushbutton 0
    config_get_bool netifd_label "$1" wps_label 0
    netifd_methods=
    [ "$netifd_button" = 0 ] || netifd_methods=push_button
    [ "$netifd_label" = 0 ] || netifd_methods="$netifd_methods${netifd_methods:+ }label"
    [ -n "$netifd_methods" ] || return 0
    config_get netifd_independent "$1" wps_independent 1
    config_get netifd_device_name "$1" wps_device_name "OpenWrt AP"
    config_get netifd_encryption "$1" encryption none
    case $netifd_encryption in
    none | owe) echo wps_state=1 ;;
    *) echo wps_state=2 ;;
    esac
    printf '%s\n' eap_server=1 "wps_independent=$netifd_independent" \
        "device_name=$netifd_device_name" device_type=6-0050F204-1 \
        "config_methods=$netifd_methods"
}

# bss_lines SECTION MODE IFNAME: the first access point of a radio is its interface.
bss_lines() {
    [ "$2" = ap ] || return 0
    case $netifd_aps in
    1) echo "interface=$3" ;;
    *) printf '%s\n' "bss=$3" "bssid=$(access_point_address "$netifd_phy" "$((netifd_aps - 1))")" ;;
    esac
    config_get netifd_ssid "$1" ssid
    config_get_bool netifd_hidden "$1" hidden 0
    printf '%s\n' "ctrl_interface=$RUN/hostapd" "ssid2=$(bytes_as_hex "$netifd_ssid")" \
        "ignore_broadcast_ssid=$netifd_hidden" auth_algs=1
    security_lines "$1" "$3"
    wps_lines "$1"
    config_list_foreach "$1" hostapd_bss_options echo
}

access_point_address() { echo "02:00:00:00:0${1#phy}:0$2"; }
station_address() { echo "02:00:00:00:a1:0${1#phy}"; }

# psk_lines: the keys of single clients, as the wifi-station sections have them.
psk_lines() { config_foreach station_key wifi-station; }

station_key() {
    config_get netifd_mac "$1" mac 00:00:00:00:00:00
    config_get netifd_key "$1" key
    echo "$netifd_mac $netifd_key"
}

# supplicant_lines SECTION: the station's network block. The supplicant never writes it back.
supplicant_lines() {
    config_get netifd_ssid "$1" ssid
    config_get netifd_encryption "$1" encryption none
    config_get netifd_key "$1" key
    netifd_ssid=$(bytes_as_hex "$netifd_ssid")
    config_get netifd_band "$netifd_radio" band
    # The simulated radios hear all bands; a real one hears its own.
    case $netifd_band in
    2g) echo "freq_list=2412 2437 2462" ;;
    5g) echo "freq_list=5180 5200 5220" ;;
    esac
    printf '%s\n' "network={" "	scan_ssid=1" "	ssid=$netifd_ssid"
    [ "${#netifd_key}" -eq 64 ] || netifd_key="\"$netifd_key\""
    case ${netifd_encryption%%+*} in
    none) printf '\tkey_mgmt=NONE\n' ;;
    wps) printf '\tkey_mgmt=WPS\n' ;;
    psk) printf '\tkey_mgmt=WPA-PSK\n\tproto=WPA\n\tpsk=%s\n' "$netifd_key" ;;
    psk2) printf '\tkey_mgmt=WPA-PSK\n\tproto=RSN\n\tpsk=%s\n' "$netifd_key" ;;
    psk-mixed) printf '\tkey_mgmt=WPA-PSK\n\tproto=RSN WPA\n\tpsk=%s\n' "$netifd_key" ;;
    sae) printf '\tkey_mgmt=SAE\n\tproto=RSN\n\tieee80211w=2\n\tsae_password=%s\n' "$netifd_key" ;;
    sae-mixed) printf '\tkey_mgmt=SAE WPA-PSK\n\tproto=RSN\n\tieee80211w=1\n\tpsk=%s\n' "$netifd_key" ;;
    esac
    echo "}"
}

# write_wanted RADIO FOLDER: all that the radio is to be, one file for each part.
write_wanted() {
    netifd_radio=$1
    netifd_folder=$2
    rm -rf "$netifd_folder"
    mkdir -p "$netifd_folder"
    config_get netifd_phy "$1" phy
    : >"$netifd_folder/interfaces"
    write_status "$1" true >"$netifd_folder/status.up"
    write_status "$1" false >"$netifd_folder/status.down"
    ! is_disabled "$1" || return 0
    each_interface "$1" write_interface
    grep -q ' ap ' "$netifd_folder/interfaces" || return 0
    config_get netifd_band "$1" band
    config_get netifd_channel "$1" channel
    config_get netifd_country "$1" country US
    {
        printf '%s\n' driver=nl80211 "country_code=$netifd_country" "channel=$netifd_channel"
        [ "$netifd_band" = 2g ] && echo hw_mode=g || echo hw_mode=a
        each_interface "$1" bss_lines
    } >"$netifd_folder/hostapd.conf"
}

write_interface() {
    echo "$1 $2 $3" >>"$netifd_folder/interfaces"
    case $2 in
    ap) psk_lines >"$netifd_folder/$3.psk" ;;
    sta) supplicant_lines "$1" >"$netifd_folder/$3.conf" ;;
    esac
}

# json_string TEXT
json_string() {
    case $1 in
    *[\"\\[:cntrl:]]*)
        printf '%s' "$1" | hexdump -v -e '1/1 "%u\n"' | awk '
            BEGIN { printf "\"" }
            $1 == 34 || $1 == 92 { printf "\\%c", $1 + 0; next }
            $1 < 32 { printf "\\u%04x", $1; next }
            { printf "%c", $1 + 0 }
            END { printf "\"" }'
        ;;
    *) printf '"%s"' "$1" ;;
    esac
}

# members SECTION OPTION...: those that the section has, as texts; a comma after each.
members() {
    netifd_section=$1
    shift
    for netifd_option in "$@"; do
        config_get netifd_value "$netifd_section" "$netifd_option"
        [ -z "$netifd_value" ] || printf '"%s":%s,' "$netifd_option" "$(json_string "$netifd_value")"
    done
}

truth() { [ "$1" = 1 ] && printf true || printf false; }

# write_status RADIO IS-UP: the rest of the radio's status, behind its state.
write_status() {
    netifd_is_up=$2
    netifd_comma=
    is_disabled "$1" || :
    printf '"disabled":%s,"retry_setup_failed":false,"config":{' \
        "$(truth "$netifd_off")"
    members "$1" path phy band channel htmode country | sed 's/,$//'
    printf '},"interfaces":['
    each_interface "$1" write_interface_status
    printf ']'
}

# write_interface_status SECTION MODE IFNAME: a radio that is down tells no interface names.
write_interface_status() {
    printf '%s{"section":"%s",' "$netifd_comma" "$1"
    netifd_comma=,
    [ "$netifd_is_up" = false ] || printf '"ifname":"%s",' "$3"
    printf '"config":{'
    members "$1" mode ssid encryption key
    config_get_bool netifd_value "$1" wps_pushbutton 0
    printf '"wps_pushbutton":%s,' "$(truth "$netifd_value")"
    config_get_bool netifd_value "$1" hidden 0
    printf '"hidden":%s,' "$(truth "$netifd_value")"
    config_get netifd_value "$1" network
    printf '"network":["%s"]},"vlans":[],"stations":[]}' "$netifd_value"
}
