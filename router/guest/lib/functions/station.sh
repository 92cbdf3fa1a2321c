# SPDX-License-Identifier: ISC
# The router's station interfaces, its way up to a root access point in repeater mode.
# shellcheck shell=sh

# Both stations are one device: with two UUIDs one button press would overlap with itself.
STATION_UUID=7c8d2b6e-41a5-5b0e-9c33-02ab5e1e0002

# 6 GHz has no access point's interface to be named after, and a radio of its own.
station_interface() { echo "$(band_interface "$1")-vxd"; }
station_address() {
    case $1 in
    2g) echo 02:00:00:00:a1:01 ;;
    5g) echo 02:00:00:00:a1:02 ;;
    6g) echo 02:00:00:00:a1:03 ;;
    esac
}
station_radio() { case $1 in 2g) echo phy1 ;; 5g) echo phy0 ;; 6g) echo phy2 ;; esac; }
station_setting() { setting "$(band_package "$1")" settings1 "$2"; }
# The simulated radios hear all bands; a real one hears its own.
station_frequencies() {
    case $1 in 2g) echo 2412 2437 2462 ;; 5g) echo 5180 5200 5220 ;; 6g) echo 5955 5975 5995 ;; esac
}

station_key_line() {
    if [ "${#1}" -eq 64 ]; then
        printf '\tpsk=%s\n' "$1"
    else
        printf '\tpsk="%s"\n' "$1"
    fi
}

# station_security_lines BAND: the lines of a network block by the stored security.
station_security_lines() {
    security=$(station_setting "$1" security)
    case $security in
    none)
        printf '\tkey_mgmt=NONE\n'
        return 0
        ;;
    wpa) printf '\tproto=WPA\n\tkey_mgmt=WPA-PSK\n' ;;
    wpa2) printf '\tproto=RSN\n\tkey_mgmt=WPA-PSK\n' ;;
    wpa/wpa2) printf '\tproto=RSN WPA\n\tkey_mgmt=WPA-PSK\n' ;;
    psk_sae) printf '\tproto=RSN\n\tkey_mgmt=WPA-PSK SAE\n\tieee80211w=1\n' ;;
    sae_only) printf '\tproto=RSN\n\tkey_mgmt=SAE\n\tieee80211w=2\n' ;;
    *)
        echo "wifi: no rule for security $security" >&2
        return 1
        ;;
    esac
    station_key_line "$(station_setting "$1" password)"
}

# The first block is the network that the router knows; a router that knows none has an idle one in
# its place, so that what the supplicant learns is always the second.
station_network_block() {
    echo "network={"
    if [ -n "$(station_setting "$1" rootApSsid)" ]; then
        printf '\tssid="%s"\n' "$(station_setting "$1" rootApSsid)"
        station_security_lines "$1"
    else
        printf '\tssid="none yet"\n\tkey_mgmt=NONE\n\tdisabled=1\n'
    fi
    echo "}"
}

write_supplicant_conf() {
    {
        printf '%s\n' "ctrl_interface=/var/run/wpa_supplicant" "update_config=1" \
            "uuid=$STATION_UUID" "country=US" "device_name=Virtual router" \
            "manufacturer=Elm Works" "model_name=kelm" "device_type=6-0050F204-1" \
            "config_methods=virtual_push_button virtual_display" \
            "freq_list=$(station_frequencies "$1")"
        station_network_block "$1"
    } >"/tmp/run/wpa_supplicant-$(station_interface "$1").conf"
}

# tell_link BAND STATUS: what other services read about the band's station.
tell_link() {
    echo "{\"status\": $2}" >"/tmp/wifi_runtime_info.$1.new"
    mv "/tmp/wifi_runtime_info.$1.new" "/tmp/wifi_runtime_info.$1"
}

# follow_station BAND: passes the supplicant's log on and keeps the link state it tells.
follow_station() {
    while IFS= read -r line; do
        emit station "$line"
        case $line in
        *CTRL-EVENT-CONNECTED*) tell_link "$1" 1 ;;
        *CTRL-EVENT-DISCONNECTED* | *CTRL-EVENT-TERMINATING*) tell_link "$1" 0 ;;
        esac
    done
}

station_answers() { wpa_cli -p /var/run/wpa_supplicant -i "$1" ping | grep -q PONG; }

# start_station BAND: the interface, beside the access point of its radio, and its supplicant. One
# that runs already takes the new settings as they are written.
start_station() {
    interface=$(station_interface "$1")
    write_supplicant_conf "$1"
    if [ -e "/run/$interface.pid" ]; then
        wpa_cli -p /var/run/wpa_supplicant -i "$interface" reconfigure >/dev/null
        return 0
    fi
    log=/run/$interface.log
    tell_link "$1" 0
    # Beside an access point that is up the radio is on its channel already.
    if ! grep -qx up "/sys/class/net/$(band_interface "$1")/operstate" 2>/dev/null; then
        frequencies=$(station_frequencies "$1")
        rest_on "$(station_radio "$1")" "${frequencies%% *}"
    fi
    iw phy "$(station_radio "$1")" interface add "$interface" type managed \
        addr "$(station_address "$1")"
    mkfifo "$log"
    follow_station "$1" 0<>"$log" >/dev/null 2>&1 &
    setsid wpa_supplicant -i "$interface" -D nl80211 -f "$log" \
        -c "/tmp/run/wpa_supplicant-$interface.conf" </dev/null >/dev/null 2>&1 &
    echo "$!" >"/run/$interface.pid"
    wait_until 20 station_answers "$interface" || emit script "wifi: $interface does not answer"
}