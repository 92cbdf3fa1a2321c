# SPDX-License-Identifier: ISC
"""hostapd and wpa_supplicant as kelm-doctor sees them: processes, sockets, answers and files.

An answer is a file, /mnt/answers/PROGRAM/IF/QUESTION; without it the program is not reached. Where
its text is "hangs", nothing is answered for ever.
"""
import os
import socket

# Any other question is noted as asked, and a test of what is asked finds it.
CLI = """
name= question=
while [ $# -gt 0 ]; do
    case $1 in
    -i) name=$2; shift ;;
    -p) folder=$2; shift ;;
    *) question=$1; break ;;
    esac
    shift
done
answer=/mnt/answers/$PROGRAM/$name/$question
[ -f "$answer" ] && [ -S "$folder/$name" ] || { echo "Failed to connect to $name" >&2; exit 255; }
[ "$(cat "$answer")" != hangs ] || exec sleep 1000
cat "$answer"
"""

CLIENTS = {'hostapd': 'hostapd_cli', 'wpa_supplicant': 'wpa_cli'}

ACCESS_POINT = {
    'ping': 'PONG\n',
    'get_config': ('bssid={mac}\nssid={name}\nwps_state=configured\npassphrase=seven green elms\n'
                   'psk=1122334455667788112233445566778811223344556677881122334455667788\nwpa=2\n'
                   'key_mgmt=WPA-PSK\ngroup_cipher=CCMP\nrsn_pairwise_cipher=CCMP\n'),
    'wps_get_status': 'PBC Status: Disabled\nLast WPS result: None\n',
    'status': 'state=ENABLED\nphy=phy0\nfreq=2412\n',
}
STATION = {
    'ping': 'PONG\n',
    'status': 'wpa_state=SCANNING\naddress={mac}\nuuid=12345678-9abc-5ef0-8234-56789abcdef0\n',
}


def put_programs(router):
    for name in ('hostapd', 'wpa_supplicant'):
        router.fake(name, '[ "$1" = -vwps ]')
        router.fake(CLIENTS[name], f'PROGRAM={name}\n{CLI}')


def put_interface(router, name, flags='0x1003'):
    router.write(f'/sys/class/net/{name}/flags', f'{flags}\n')


def put_socket(router, program, name):
    place = router.at(f'/var/run/{program}/{name}')
    if not os.path.lexists(place):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as made:
            made.bind(place)


def answer(router, program, name, question, text):
    """What a question gets from now on; None: nothing."""
    path = f'/mnt/answers/{program}/{name}/{question}'
    if text is None:
        router.remove(path)
    else:
        router.write(path, text)


def put_access_point(router, name, ssid='Elm House', mac='02:00:00:00:00:01'):
    put_interface(router, name)
    put_socket(router, 'hostapd', name)
    for question, text in ACCESS_POINT.items():
        answer(router, 'hostapd', name, question, text.format(name=ssid, mac=mac))


def put_station(router, name, mac='02:00:00:00:00:02'):
    put_interface(router, name)
    put_socket(router, 'wpa_supplicant', name)
    for question, text in STATION.items():
        answer(router, 'wpa_supplicant', name, question, text.format(mac=mac))


def change_answer(router, program, name, question, old, new):
    path = f'/mnt/answers/{program}/{name}/{question}'
    text = router.read(path)
    assert old in text
    router.write(path, text.replace(old, new))


def change_file(router, path, old, new):
    text = router.read(path)
    assert old in text
    router.write(path, text.replace(old, new))
