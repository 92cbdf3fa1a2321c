# SPDX-License-Identifier: ISC
"""Whole attempts on the virtual router, one test for each scenario of script/demo."""

import os
import re
import shutil

import pytest

import causes
import secrets_of_runs
from report import attempts, readers
from router import play, recorder, run_file, scenarios

# The sentence that each scenario ends with; T stands for a time in seconds.
TOLD = {
    "push-button": 'The phone joined "Elm House" on 2.4 GHz T s after the press.',
    "push-button-5g": 'The phone joined "Elm House 5G" on 5 GHz T s after the press.',
    "hostapd-user": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                    'hostapd served it as user 101.',
    "unconfigured": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                    'the open network got a key by its push.',
    "client-pin": 'The printer joined "Elm House" on 2.4 GHz T s after its PIN was entered.',
    "access-point-pin": 'The laptop gave the router new settings and joined "Laptop chose this" '
                        'on 2.4 GHz T s later.',
    "overlap": 'The phone and the tablet were pushed at the same time and nobody joined; '
               'the daemon gave up T s after the press.',
    "neighbour": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                 'the neighbour got nothing.',
    "nobody-comes": "Nobody came; the daemon gave up T s after the press by the router's clock, "
                    "which was moved.",
    "cancel": 'The web page cancelled the attempt T s after the press; the phone, pushed T s '
              'after the press, was too late and joined nothing.',
    "press-cancel-press": 'The web page cancelled the attempt T s after the press; '
                          'the phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "second-press": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                    'the second press, during the attempt, changed nothing.',
    "terminated": 'The daemon was asked to end T s after the press: it stopped the attempt and '
                  'ended with status 0 T s later; nobody joined.',
    "hostapd-dies": "The scenario killed hostapd; nobody could join; the daemon gave up T s after "
                    "the press by the router's clock, which was moved; "
                    'the phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "no-broker": 'Without the bus at its start the daemon did not hear the first press; '
                 'the phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "wrong-pin": 'The printer refused the PIN that was entered; nobody joined; the daemon gave up '
                 "T s after the PIN was entered by the router's clock, which was moved.",
    "client-leaves": 'The phone fell silent in the middle of the exchange; nobody joined; '
                     "the daemon gave up T s after the press by the router's clock, which was "
                     'moved.',
    "wrong-key": 'The daemon told a success; but the phone was told that its key is wrong; '
                 'the phone joined no network.',
    "hidden": "There is no WPS for the hidden network; nobody joined; the daemon gave up T s "
              "after the press by the router's clock, which was moved.",
    "wpa3-only": "The daemon told a success; but the phone's key is for WPA2; "
                 "the phone joined no network.",
    "disk-full": 'The new key could not be stored; the next daemon found no access point.',
    "script-hangs": 'The script hung until the attempt was over; the wireless was not restarted.',
    "broker-dies": 'The daemon lost the bus in the middle of the attempt; nobody joined.',
    "hostapd-hangs": 'The daemon got no answer from hostapd and refused the press; '
                     'the phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "start-marker": 'The daemon refused the press; '
                    'the phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "daemon-killed": 'The daemon was killed by signal 9; its pid file kept the next one from '
                     'starting; nobody joined.',
    "repeater": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press.',
    "repeater-2g": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                   'only 2.4 GHz enrolled; 5 GHz was given the same key.',
    "repeater-near": 'The router joined "Great Oak" on 2.4 GHz and "Great Oak 5" on 5 GHz T s '
                     'after the press; only 2.4 GHz enrolled; 5 GHz was given the same key.',
    "repeater-5g": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                   'only 5 GHz enrolled; 2.4 GHz was given the same key.',
    "repeater-alone": "No root was pushed; the daemon gave up T s after the press by the router's "
                      "clock, which was moved.",
    "repeater-silent": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                       'only 2.4 GHz enrolled; the estimate of the silent band fell from N to N '
                       'percent.',
    "repeater-connected": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the '
                          'press; only 5 GHz enrolled.',
    "repeater-factory": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                        'it had known no root before.',
    "repeater-mesh": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                     'the backhaul of the mesh was stored.',
    "repeater-no-mesh": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                        'it had asked for a mesh.',
    "repeater-open-wpa3": 'The router joined "Open Oak" on 2.4 GHz and "Old and New Oak" on '
                          '5 GHz T s after the press.',
    "repeater-overlap": '2 root access points were pushed at the same time and nobody joined; '
                        'the daemon gave up T s after the press.',
    "repeater-rogue": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                      'the rogue "WPS-SUCCESS" did not stop it.',
    "repeater-6g": 'The router joined "Great Oak" on 2.4 GHz and 5 GHz T s after the press; '
                   '6 GHz was given the same key.',
    "stock-without-kelm": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                          'it could not come back after `wifi` and the reboot.',
    "stock-button": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                    'it came back after `wifi` and the reboot.',
    "stock-guest": 'The phone joined "Elm House" on 2.4 GHz T s after the press.',
    "stock-pin": 'The printer joined "Elm House" on 2.4 GHz T s after its PIN was entered; '
                 'it came back after `wifi`.',
    "stock-no-wps": 'Nobody can join; kelm says: hostapd has no WPS: install wpad-mbedtls in place '
                    'of wpad-basic-mbedtls.',
    "stock-hidden": 'Nobody can join; kelm says: 2.4 GHz: the network is hidden.',
    "stock-wpa3-only": 'Nobody can join; kelm says: 2.4 GHz: WPA3 only.',
    "stock-radio-off": 'Nobody can join; kelm says: 2.4 GHz: the radio is switched off.',
    "stock-reload": 'The phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "stock-crash": 'The phone joined "Elm House" on 2.4 GHz T s after the next press.',
    "stock-web": 'The phone joined "Elm House" on 2.4 GHz T s after the request.',
    "stock-led": 'The phone joined "Elm House" on 2.4 GHz T s after the press.',
    "stock-button-24.10": 'The phone joined "Elm House" on 2.4 GHz T s after the press; '
                          'it came back after the reboot.',
    "stock-repeater": 'The router joined "Öak\'s "$(id)" \\n ~`" on 2.4 GHz T s after the press; '
                      'it came back after the reboot.',
}


def pattern_of(told):
    return re.sub(r"\bT s\b", r"\\d+\\.\\d s", re.sub(r"\bN\b", r"\\d+", re.escape(told))
                  .replace(r"T\ s", "T s"))


@pytest.mark.parametrize("scenario", scenarios.SCENARIOS, ids=lambda scenario: scenario.name)
def test_scenario(scenario, build_folder):
    assert shutil.which("qemu-system-x86_64"), "the package qemu-system-x86 is not installed"
    outcome = play.play(scenario, build_folder)
    failures = outcome.failures()
    if failures:
        pytest.fail("%s\n(logs: %s)" % ("\n".join(failures), outcome.log_folder), pytrace=False)
    assert re.fullmatch(pattern_of(TOLD[scenario.name]), outcome.last_line()), outcome.last_line()
    check_no_secret(outcome)
    check_causes(scenario.name, outcome.log_folder)


def content(outcome, name):
    with open(os.path.join(outcome.log_folder, name), encoding="utf-8") as file:
        return file.read()


def check_no_secret(outcome):
    """What may leave the router, and what is told of a run, holds none of its keys and PINs."""
    known = secrets_of_runs.of_run(content(outcome, "events.log"), outcome.files)
    for name in (recorder.NAME, run_file.NAME):
        text = content(outcome, name)
        assert text.count("\n") > 1, "%s is empty" % name
        assert secrets_of_runs.in_text(text, known) == [], name


def check_causes(name, folder):
    """What script/report makes of the run, and of its recording alone."""
    assert causes_of(folder) == causes.RUNS[name]
    if name in causes.RECORDINGS:
        assert causes_of(os.path.join(folder, recorder.NAME)) == causes.RECORDINGS[name]


def causes_of(path):
    return [attempt.cause for attempt in attempts.attempts(readers.read(path))]
