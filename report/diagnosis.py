# SPDX-License-Identifier: ISC
"""Why an attempt ended on a band as it did: rules of the table of causes."""

from report.case import answer
from report.causes import CONFIG_ERRORS, CURES, CURE_ELSE, MESSAGES
from report.events import BAND_6G, BANDS

SILENT = 12
SIGKILL = 9
SUCCESS, ERROR, OVERLAP = 2, 3, 8
WALK_S = 110  # of a failure so late the time-out is the reason; it comes after 120 to 125 seconds
RECEIVED = "a device received a key, but "
ANSWER_S = 15  # so long after a request its commands need not have come
SHOWN = 4  # devices in a sentence
SCRIPT_S = 30  # no script takes so long by itself
PIN_ERRORS = {"15": "pin-locked", "18": "wrong-pin"}
CLI = ("hostapd_cli", "wpa_cli")
COMMANDS = ("command", "pushes", "takes-pin", "stops", "script")
LEAST_LIMIT_S = 2.5  # no command is killed sooner at its limit


def _not_stored(case, band):
    if band == BAND_6G:
        return None
    told = case.first("not-stored", band) or case.first("not-stored", "")
    success = case.first(("registered", "wifi-success", "new-settings"), band)
    if case.code(band) != ERROR and not (told and success and case.code(band) != SUCCESS):
        return None
    # On the bus a repeater's failed exchange has the same number, if SIGTERM ended it.
    if case.first("failed", band) and not success:
        return None
    told = told or case.first("not-written") or case.info(band, "error")
    reason = told.data.get("reason", "status 3") if told else "status 3"
    return answer("not-stored", (success, told, case.part.end), reason=reason)


def _has_wrong_key(case, band, mac):
    fact = next((one for one in case.all_of("wrong-key", band, behind=True)
                 if one.data["mac"] == mac), None)
    lanes = {one.data["lane"] for one in case.all_of("client-done")}
    return fact or next((one for one in case.all_of("client-wrong-key", behind=True)
                         if one.data["lane"] in lanes), None)


def _came_to_nothing(case, band, mac, joined):
    """(cause, fact): what became of a device that has received a key."""
    wrong = _has_wrong_key(case, band, mac)
    if wrong:
        return "wrong-key", wrong
    known = _settings_cause(case, band)
    if known and known[0] == "wpa3-only" and not joined:
        return known
    lost = case.first("client-finds-none", behind=True)
    if lost and not joined and case.first("client-done") \
            and not case.first("client-connected", behind=True):
        return "no-fit", lost
    return ("joined" if joined or not _would_be_seen(case, band) else "key-unused"), None


def _would_be_seen(case, band):
    """Whether hostapd itself is heard, which tells of each device that uses its key."""
    registered = case.first("registered", band)
    return registered is not None and registered.event.source == "hostapd"


def _unapplied(case, band):
    """A success whose new settings no script has taken."""
    success = case.first(("registered", "wifi-success", "new-settings"), band)
    trouble = script_trouble(case, band) if success else None
    if trouble is None or not trouble[1]["command"].endswith("config_wifi"):
        return None
    cause, details, evidence = trouble
    before = "the exchange succeeded, but its result was not stored: "
    return cause, {**details, "before": before}, [success] + evidence


def _joined(case, band):
    if case.is_repeater:
        return None
    registered = case.first("registered", band)
    info = case.info(band, "success")
    info = info if info and info.data["action"] == 2 else None
    told = case.part.end if case.code(band) == SUCCESS else None
    said = case.first("succeeded", band)
    fact = registered or info or said or told
    if fact is None:
        return None
    told_mac = [one.data.get("mac") for one in (registered, info) if one is not None]
    mac = next((one for one in told_mac if isinstance(one, str) and 0 < len(one) <= 32), "")
    joined = [one for one in case.all_of("joined", band, behind=True)
              if mac and one.data["mac"] == mac and one.index > fact.index]
    at = joined[0] if joined else fact
    cause, why = _came_to_nothing(case, band, mac, joined)
    return answer(cause, (registered or info or said, at, told, why), before=RECEIVED,
                  who=case.who(mac), after=case.after(at), mac=mac,
                  after_s=case.elapsed_s(at))


def _is_stored(case):
    """Whether what a station has learnt was given to the scripts."""
    script = next((fact for fact in case.all_of("script")
                   if fact.data["command"].endswith("config_wifi")), None)
    stored = case.first("applied") or script or case.first("stored")
    if stored or case.first("asked-cancel") or case.first("terminated"):
        return stored
    # Where the bus is seen, a stop that nobody asked for is the verdict's.
    return case.first("stops") if "bus" in case.sources else None


def _is_told_at_sigterm(case):
    """A repeater's daemon tells a success itself only where it is ended; else a script does it."""
    runs = [fact.data.get("run") for fact in case.all_of("script")]
    sees_commands = case.first("pushes") is not None and case.first("pushes").data["run"]
    return bool(case.first("terminated") or sees_commands and not any(
        run not in ("", "0", None) for run in runs))


def _learnt(case, band):
    if not case.is_repeater:
        return None
    success = case.first("wifi-success", band)
    told = case.part.end if case.code(band) == SUCCESS else None
    mirrored = case.first("mirrored", band)
    if mirrored or not (success or told or case.first("succeeded", band)):
        return None
    stored = _is_stored(case) or (None if _is_told_at_sigterm(case) else told)
    if stored is None:
        return None
    return answer("learnt", (success, stored, told), after=case.after(success) if success else "",
                  after_s=case.elapsed_s(success))


def _mirrored(case, band):
    fact = case.first("mirrored", band)
    if fact is None:
        return None
    # 6 GHz only ever takes over.
    low = case.low_estimate() if band != BAND_6G else None
    if low is None:
        return answer("mirrored", (fact,))
    return answer("given-up", (low, fact), estimate=_percent(low),
                  mirror="; it takes over what the other band has learnt")


def _given_up(case, band):
    low = case.low_estimate()
    if low is None and not _is_left_behind(case, band):
        return None
    # Where another line of the band tells its end, that is the reason.
    if case.before_end(case.all_of(("failed", "overlap", "wifi-timeout"), band)):
        return None
    return answer("given-up", (low or case.first("wifi-success"),), estimate=_percent(low),
                  mirror="")


def _percent(low):
    return " at an estimate of %s percent" % low.data["percent"] if low else ""


def _is_left_behind(case, band):
    """A repeater's other band that comes to nothing once one has learnt; its log tells more."""
    return case.is_repeater and not case.has_no_outcome() and any(
        _learnt(case, one) for one in BANDS if one != band)


def _not_needed(case, band):
    """An access point serves one device, which came on the other band."""
    if case.is_repeater:
        return None
    other = next((one for one in BANDS if one != band
                  and (_joined(case, one) or _new_settings(case, one))), None)
    fact = case.first(("registered", "new-settings"), other) or case.part.end if other else None
    return answer("not-needed", (fact,)) if other else None


SETTING_CAUSES = (("hidden", "hidden"), ("disabled", "band-off"), ("off", "band-off"),
                  ("wpa3", "wpa3-only"), ("no wps", "no-wps"), ("owe", "no-wps"),
                  ("wep", "no-wps"), ("tkip", "no-wps"))


def _forced_off(known, band):
    """hostapd says it of the radio that it sets up next, and does not name it."""
    said = None
    for place, fact in enumerate(known):
        if fact.kind == "forced-off":
            up = next((one for one in known[place:] if one.kind == "wifi-up"), None)
            said = ("hidden", fact) if up and up.band == band else said
    return said


def _settings_cause(case, band):
    """(cause, fact) of what the settings or the service say about a band, or None."""
    known = case.before + case.part.facts
    told = [fact for fact in known if fact.kind in ("settings", "unserved") and fact.band == band]
    if not told:
        return _forced_off(known, band)
    fact = told[-1]
    if fact.kind == "unserved":
        return fact.data["cause"], fact
    for word, cause in SETTING_CAUSES:
        if word in fact.data["words"]:
            return cause, fact
    return None


def _not_taking_part(case, band):
    if case.part.started is None or case.part.started.get(band) != SILENT:
        return None
    connected = case.first("was-connected", band)
    if connected:
        return answer("not-taking-part", (connected,), reason=": it is connected already")
    known = _settings_cause(case, band)
    if known:
        return answer(known[0], (known[1],), reason="")
    start = case.first("announced")
    return answer("not-taking-part", (start,), reason=": WPS is off for it, or the band is")


def _overlap(case, band):
    facts = case.before_end(case.all_of("overlap", band))
    errors = [fact for fact in case.all_of("failed", band) if fact.data.get("number") == "12"]
    seen = facts + errors[:1] + [case.info(band, "overlap")]
    seen = [fact for fact in seen if fact is not None]
    if not seen and case.code(band) != OVERLAP:
        return None
    roots = next((fact for fact in facts if fact.data.get("one")), None)
    if roots:
        names = [roots.data["one"], roots.data["two"]]
    else:
        macs = [fact.data["mac"] for fact in case.heard().values()]
        if len(macs) < 2:
            begun = case.all_of("exchange")
            macs = sorted({fact.data["mac"] for fact in begun if fact.data.get("mac")})
        names = [case.name_of(mac) for mac in macs]
    kind = "root access points" if case.is_repeater else "devices"
    count = "two" if len(names) <= 2 else str(len(names))
    more = ["%d more" % (len(names) - SHOWN)] if len(names) > SHOWN else []
    names = names[:SHOWN]
    return answer("overlap", (seen or [case.part.end])[:4], count="%s %s" % (count, kind),
                  devices=": " + " and ".join(names + more) if len(names) > 1 else "", who=names)


def _wifi_restarted(case, band):
    down = case.before_end(case.all_of("wifi-down", band))
    said = case.first("radio-anew")
    if not down and not said:
        return None
    up = [fact for fact in case.all_of("wifi-up", band, behind=True)
          if down and fact.index > down[0].index]
    if not up and not said:
        return answer("wifi-daemon-gone", down[:1], what="")
    return answer("wifi-restarted", (down[:1] + up[:1]) + [said])


def _killed_commands(case):
    """Commands that were killed: as the daemon says, or as their end shows."""
    ends = [fact for fact in case.all_of("command-end")
            if fact.data["how"] == "signal" and fact.data["number"] == SIGKILL
            and _ran_long(case, fact)]
    return [fact for fact in case.all_of("hung") if fact.data["why"] != "the daemon ends"] + ends


def _ran_long(case, end):
    """Not so where the daemon's own end came in between: it waits for no command then."""
    begun = [fact for fact in case.all_of(COMMANDS) if fact.index < end.index
             and fact.data["command"] == end.data["command"]]
    return not begun or begun[-1].time_s is None or \
        end.time_s - begun[-1].time_s >= LEAST_LIMIT_S


def _how_long(fact):
    return " after %s s" % fact.data["seconds"] if fact.data.get("seconds") else ""


def _hung_command(case, names):
    """Such a command that was killed at its limit."""
    return next((fact for fact in _killed_commands(case)
                 if fact.data["command"].startswith(names)), None)


def _wifi_daemon_hung(case, band):
    fact = case.first("socket-hung", band) or case.first("no-attach")
    killed = next((one for one in _killed_commands(case) if one.data["command"].startswith(CLI)
                   and one.band in ("", band)), None)
    if not fact and not killed:
        return None
    what = "; %s was killed%s" % (killed.data["command"].split(" ")[0], _how_long(killed)) \
        if killed else ""
    return answer("wifi-daemon-hung", (fact, killed), what=what)


def _is_silent(case, band):
    """The command that stops WPS, if its Wi-Fi daemon says nothing behind it, as it always does."""
    stop = case.first("stops", band)
    if stop is None or not case.all_of("active", band):
        return None
    if not any(fact.event.source in ("hostapd", "station") for fact in case.all_of("active", band)):
        return None  # the daemon's own log ends before the answer comes
    said = case.first(("wifi-cancel", "wifi-timeout"), band, behind=True)
    later = [fact for fact in case.part.facts + case.part.after if fact.index > stop.index + 4]
    return stop if said is None and later else None


def _wifi_daemon_gone(case, band):
    lost = case.before_end(case.all_of(("socket-gone", "socket-refuses"), band))
    gone = next((fact for fact in lost if fact.data["of_stations"] == case.is_repeater), None)
    if gone:
        return answer("wifi-daemon-gone", (gone,), what=case.after(gone))
    silent = _is_silent(case, band)
    wireless = next((fact for fact in case.all_of("script")
                     if fact.data["command"].startswith("/etc/init.d/wifi ")
                     and (silent is None or fact.index < silent.index)), None)
    missed = None
    for fact in case.part.after:
        if fact.kind in ("wifi-down", "script") and fact.data.get("run") == "0" \
                and "/wifi" in (fact.data.get("command") or "") or fact.kind == "boot":
            break
        if fact.kind == "no-socket":
            missed = fact
            break
    if wireless or not silent and not missed:
        return None
    if case.first("registered") or case.first("wifi-success"):
        return None
    what = " in the middle of the attempt" if silent else " when the daemon looked for it again"
    return answer("wifi-daemon-gone", (silent, missed), what=what)


def _message(fact):
    number = fact.data.get("message")
    return MESSAGES.get(int(number), "message %s" % number) if number and len(number) < 5 else ""


def _failed(case, band):
    """The last exchange of the band that ended with WPS-FAIL."""
    failures = [fact for fact in case.before_end(case.all_of("failed", band))
                if fact.data.get("number") != "12"]
    if not failures:
        return None
    # One failure is told more than once; the number may stand in the first alone.
    numbered = [fact for fact in failures if (fact.data.get("number") or "0").strip("0")]
    fact = (numbered or failures)[-1]
    number = fact.data.get("number") or "0"
    message = _message(fact)
    if number.strip("0") == "":
        where = " at %s" % message if message else _last_message(case, band)
        return answer("exchange-broke", failures[-2:], where=where, message=message,
                      who=_other_side(case, band))
    by_pin = case.part.method in ("PIN", "registrar")
    cause = PIN_ERRORS.get(number, "config-error") if by_pin else "config-error"
    value = int(number) if len(number) < 6 else -1
    return answer(cause, (fact,), number="error %s" % number if cause == "wrong-pin" else number,
                  name=CONFIG_ERRORS.get(value, "which has no name"), message=message or "its end",
                  cure=CURES.get(value, CURE_ELSE))


def _other_side(case, band):
    begun = case.all_of("exchange", band)
    mac = next((fact.data["mac"] for fact in reversed(begun) if fact.data.get("mac")), "")
    if case.is_repeater:
        return "the root access point"
    return case.name_of(mac)


def _last_message(case, band):
    """Where a daemon with debug output told the messages of the exchange."""
    told = case.all_of("message", band) or case.all_of("message", "")
    return " after %s" % told[-1].data["name"] if told else ""


def _pin_locked(case, band):
    fact = case.first("pin-locked", band)
    return answer("pin-locked", (fact,)) if fact else None


def _exchange_ended(case, band):
    """An exchange without a success, and without a word why."""
    begun = case.before_end(case.all_of("exchange", band))
    if not begun or case.first(("registered", "wifi-success", "new-settings"), band):
        return None
    last = begun[-1]
    mac = last.data.get("mac")
    for fact in case.before_end(case.all_of(("left", "fell-silent", "exchange-end"), band)):
        if fact.index < last.index or mac and fact.data.get("mac") not in (mac, None):
            continue
        if fact.kind != "exchange-end":
            return answer("client-left", (last, fact), who=_other_side(case, band),
                          left="left" if fact.kind == "left" else "fell silent")
        return answer("exchange-broke", (last, fact), who=_other_side(case, band),
                      where=_last_message(case, band))
    if case.has_no_outcome():
        return None
    return answer("exchange-broke", (last,), who=_other_side(case, band),
                  where=_last_message(case, band))


def _no_offer(case, band):
    """wps_pbc was told, and the Wi-Fi daemon did not begin."""
    pushed = case.first("pushes", band)
    if pushed is None or case.all_of("active", band) or case.has_no_outcome():
        return None
    # Only where its words would be seen: those of this band are, or those of the other one.
    seen = case.all_of("active") or [
        fact for fact in case.before + case.part.facts if fact.band == band
        and not fact.second_hand and fact.kind.startswith(("wifi-", "socket-a"))]
    if not seen:
        return None
    known = _settings_cause(case, band)
    return answer(known[0] if known else "no-wps", (pushed, known[1] if known else None), reason="")


def _learnt_words(case, band):
    if case.is_repeater and case.first("wifi-success", band):
        return "; what this band had learnt was not stored"
    return ""


def _ended_without_restart(case):
    """The end of a daemon that told a failure at once and did not have itself restarted."""
    end, told = case.part.daemon_end, case.part.end
    if end is None or told is None or end.data["how"] != "status" or end.data["number"]:
        return None
    seconds = case.waited_s(told)
    sees_commands = any(fact.data.get("run") not in ("", "0", None)
                        for fact in case.all_of(("pushes", "takes-pin")))
    restarts = [fact for fact in case.all_of("script") if fact.data["run"] not in ("", "0")]
    early = seconds is not None and seconds < WALK_S and not case.first("daemon-timeout")
    return end if sees_commands and not restarts and early else None


def _terminated(case, band):
    fact = case.first("terminated") or _ended_without_restart(case)
    if fact is None:
        return None
    return answer("terminated", (fact,), learnt=_learnt_words(case, band))


def _cancelled(case, band):
    part = case.part
    quiet = part.outcome is None and part.stop is not None
    # A repeater's cancel is told nowhere; its commands show it.
    told = part.cancel if part.outcome is None or not case.verdict_begun() else None
    stops = case.first("stops") if part.outcome is None and not case.verdict_begun() \
        and "bus" not in case.sources else None
    fact = told or (part.stop if quiet else None) or stops
    if fact is None:
        return None
    return answer("cancelled", (fact, part.stop if part.stop is not fact else None),
                  after=case.after(fact), learnt=_learnt_words(case, band))


def _daemon_killed(case, _band):
    part = case.part
    end = part.daemon_end
    if part.outcome is not None or case.verdict_begun():
        return None
    if end is not None and end.data["how"] == "signal":
        return answer("daemon-killed", (end,), how="was killed by signal %s" % end.data["number"])
    if end is not None and end.data["number"]:
        return answer("daemon-killed", (end,), how="ended with status %s" % end.data["number"])
    if end is not None and end.data["how"] == "gone":
        return answer("daemon-killed", (end,), how="ended without an outcome")
    if end is None and part.next_daemon is not None and part.stop is None:
        return answer("daemon-killed", (part.next_daemon,), how="ended without an outcome")
    return None


def _router_restarted(case, _band):
    if not case.part.is_cut_by_boot or case.part.outcome is not None:
        return None
    return answer("router-restarted", (case.part.facts or [case.part.opener])[-1:])


def _timed_out(case, band):
    """The fact that tells the time-out of a band, or None."""
    told = case.first("daemon-timeout") or next(
        iter(case.before_end(case.all_of("wifi-timeout", band))), None)
    told = told or case.info(band, "timeout")
    if told:
        return told
    late = case.part.end or case.verdict_begun() or case.part.daemon_end
    seconds = case.waited_s(late)
    return late if seconds is not None and seconds >= WALK_S else None


def _within(case, fact):
    times = fact.data.get("from"), fact.data.get("to")
    if all(times) and len(times[0]) < 12 and len(times[1]) < 12:
        return " within %d s" % max(int(times[1]) - int(times[0]), 0)
    seconds = case.waited_s(fact)
    return " within %.0f s" % seconds if seconds is not None and seconds >= WALK_S else ""


def _nobody_came(case, band):
    fact = _timed_out(case, band)
    if fact is None:
        return None
    within = _within(case, fact)
    heard = case.heard(band)
    if heard and case.part.method != "PIN":
        names = [case.name_of(one.data["mac"]) for one in heard.values()]
        return answer("heard-only", list(heard.values())[:3] + [fact], within=within,
                      who=" and ".join(names[:3]))
    return answer("nobody-came", (fact,), within=within)


def _still_running(case, band):
    if not case.has_no_outcome():
        return None
    learnt = "; this band had learnt its network" if _learnt_words(case, band) else ""
    return answer("still-running", (case.part.facts or [case.part.opener])[-1:], learnt=learnt)


def script_trouble(case, _band):
    """A script that kept the outcome from taking effect."""
    hung = _hung_command(case, ("/etc/init.d/", "/usr/bin/wifi"))
    if hung:
        return answer("script-hung", (hung,), command=hung.data["command"])
    failed = next((fact for fact in case.all_of("command-end")
                   if fact.data["number"] and fact.data["how"] == "status"
                   and fact.data["command"].startswith("/etc/init.d/")), None)
    if failed:
        return answer("script-failed", (failed,), number=failed.data["number"],
                      command=failed.data["command"])
    return _without_end(case)


def _without_end(case):
    """A script of the daemon's that was begun and has no end, where the ends of others are told."""
    ends = [fact.data["command"] for fact in case.all_of("command-end", behind=True)]
    begun = [fact for fact in case.all_of("script") if fact.data["run"] not in ("", "0")
             and fact.data["command"].endswith(("config_wifi", "re_kelm_info"))]
    last_s = case.log.events[-1].time_s
    for fact in begun:
        same = [one for one in begun if one.data["command"] == fact.data["command"]]
        is_over = not case.has_no_outcome() or last_s is None \
            or last_s - same[-1].time_s >= SCRIPT_S
        if ends and is_over and len(same) > ends.count(fact.data["command"]):
            return answer("script-hung", (fact,), command=fact.data["command"])
    return None


def bus_hung(case, _band):
    fact = _hung_command(case, ("ubus ",))
    return answer("bus-hung", (fact,)) if fact else None


def _new_settings(case, band):
    fact = case.first("new-settings", band)
    if fact is None:
        return None
    return answer("new-settings", (fact, case.first("wifi-success", band)), after=case.after(fact),
                  after_s=case.elapsed_s(fact))


def _ended_by_itself(case, _band):
    part = case.part
    if case.is_repeater or part.outcome is not None or part.stop is not None \
            or part.daemon_end is None and part.next_daemon is None:
        return None
    fact = case.first(("wifi-disabled", "wifi-success"))
    return answer("ended-by-itself", (fact, part.daemon_end)) if fact else None


def _pin_at_repeater(case, _band):
    if case.part.method != "PIN" or case.mode == "access point" or case.part.outcome is not None:
        return None
    known = case.is_repeater or case.attempt.end_s is not None and case.first("announced")
    if not known or case.first(("takes-pin", "exchange")):
        return None
    last_s = case.log.events[-1].time_s
    if last_s is not None and last_s - case.part.opener.time_s < ANSWER_S:
        return None
    return answer("pin-at-repeater", (case.part.opener, case.first("announced")))


def _unknown(case, _band):
    end = case.part.end or case.part.daemon_end or case.part.stop
    return answer("unknown", (case.part.facts or [case.part.opener])[-3:] + [end])


# The first that finds something decides.
RULES = (_not_taking_part, _not_stored, _unapplied, _joined, _new_settings, _learnt, _mirrored,
         _not_needed, _overlap, _pin_locked, _failed, _wifi_restarted, _wifi_daemon_hung,
         _wifi_daemon_gone, _pin_at_repeater, _no_offer, _ended_by_itself, _exchange_ended,
         _terminated, _cancelled, _daemon_killed, _router_restarted, _given_up, _nobody_came,
         script_trouble, bus_hung, _still_running, _unknown)
