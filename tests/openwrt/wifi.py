# SPDX-License-Identifier: ISC
"""hostapd and wpa_supplicant of a stock router, as far as kelm's scripts look at them."""
import os
import socket

HOSTAPD_CLI = """
while [ $# -gt 0 ]; do
    case $1 in
    -i) name=$2; shift ;;
    -p) shift ;;
    get_config) [ -f "/mnt/wps/$name" ] && echo "wps_state=$(cat "/mnt/wps/$name")" || exit 255 ;;
    wps_get_status) cat "/mnt/wps/$name.status" 2> /dev/null || echo OK; break ;;
    raw) cat /mnt/wps/raw && break ;;
    *) echo OK && break ;;
    esac
    shift
done
"""
WPA_CLI = """
while [ $# -gt 0 ]; do
    case $1 in
    -i) name=$2; shift ;;
    -p) shift ;;
    status) echo "wpa_state=$(cat "/mnt/wpa/$name")" ;;
    set) [ -f "/mnt/wpa/$name" ] && echo OK || echo FAIL; break ;;
    *) echo OK && break ;;
    esac
    shift
done
"""


def put_wifi(stock):
    """Both programs, with WPS; no interface yet."""
    for name in ('hostapd', 'wpa_supplicant'):
        stock.fake(name, '[ "$1" = -vwps ]')
    stock.fake('hostapd_cli', HOSTAPD_CLI)
    stock.fake('wpa_cli', WPA_CLI)
    stock.write('/mnt/wps/raw', 'OK\n')


def put_socket(stock, folder, name):
    place = stock.at(f'/var/run/{folder}/{name}')
    if not os.path.lexists(place):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as made:
            made.bind(place)


def put_access_point(stock, name='phy0-ap0', wps='configured',
                     key='wpa_passphrase=seven green elms', others='', more='wps_state=2'):
    """One that is up: its socket, what hostapd was given, and its file of keys."""
    phy = name.partition('-')[0]
    put_socket(stock, 'hostapd', name)
    stock.write(f'/mnt/wps/{name}', f'{wps}\n')
    stock.write(f'/var/run/hostapd-{name}.psk', '', 0o640)
    stock.write(f'/var/run/hostapd-{phy}.conf',
                f'driver=nl80211\ninterface={name}\nssid=Elm House\n{key}\n'
                f'wpa_psk_file=/var/run/hostapd-{name}.psk\n{more}\n{others}', 0o640)


def put_station(stock, name='phy0-sta0', state='SCANNING'):
    put_socket(stock, 'wpa_supplicant', name)
    stock.write(f'/mnt/wpa/{name}', f'{state}\n')


def state_of(stock, file):
    """A file of the state folder as a dict; empty if it is not there."""
    text = stock.read(f'/var/run/kelm/{file}') or ''
    return dict(line.split('=', 1) for line in text.splitlines())
