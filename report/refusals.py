# SPDX-License-Identifier: ISC
"""Why nothing began at a press: rules of the table of causes."""

from report.case import answer

ANSWER_S = 15  # so long after a press nothing need have come yet


def _service_said(case):
    """What the service of stock OpenWrt knew of each band, at the press or before it."""
    asked = [fact for fact in case.part.facts if fact.kind == "unserved"]
    told = [fact for fact in asked if fact.data["refused"]] or asked
    if told:
        return told
    latest = {}
    for fact in case.before:
        if fact.kind == "ready":
            latest = {band: one for band, one in latest.items()
                      if band not in fact.data["bands"] and band}
        elif fact.kind == "unserved":
            latest[fact.band] = fact
            if fact.band:
                latest.pop("", None)
        elif fact.kind == "daemon-start":
            latest = {band: one for band, one in latest.items() if band}
    return list(latest.values())


def _refused_by_service(case):
    told = _service_said(case)
    if not told:
        return None
    return {fact.band: answer(fact.data["cause"], (fact,), reason=" (%s)" % fact.data["reason"])
            for fact in told}


REFUSALS = (("starting", "refused-starting"), ("link-unknown", "refused-link"),
            ("ignored", "refused-busy"), ("bad-request", "bad-request"))


def _refused_by_daemon(case):
    refused = case.first("press-refused")
    if refused:
        hung = case.first("no-attach")
        cause = "wifi-daemon-hung" if hung else "wifi-daemon-gone"
        return {"": answer(cause, (case.first("no-socket") or hung, refused), what=" at the press")}
    for kind, cause in REFUSALS:
        fact = case.first(kind)
        if fact:
            return {"": answer(cause, (fact,), after="")}
    return None


def _stopped_at_check(case):
    """A press that reached the check of the wireless, and no further: level 4 tells no more."""
    fact = next((one for one in case.all_of("result") if one.data["number"] == "-1"), None)
    if fact is None:
        return None
    or_link = ", or the state of a station's link could not be read" if case.is_repeater else ""
    return {"": answer("refused-starting", (fact,), or_link=or_link)}


def _deaf(case):
    """A daemon that starts without ubus never looks for it again."""
    if case.first("taken"):
        return None
    lost, has_daemon = None, False
    for fact in case.before:
        if fact.kind == "no-bus" or fact.kind == "broker-attached" and has_daemon:
            lost = fact
        elif fact.kind == "daemon-start" and has_daemon and fact.event.source in ("exit", "start"):
            continue  # seen from outside, which may come behind the daemon's own lines
        elif fact.kind in ("bus-back", "daemon-start", "taken", "announced"):
            lost = None
            has_daemon = fact.kind == "daemon-start" or has_daemon
        elif fact.kind in ("daemon-end", "broker-gone"):
            has_daemon = False
    lost = lost or case.first(("no-bus", "broker-gone"))
    return {"": answer("bus-gone", (lost,), heard=" and heard no press")} if lost else None


def _no_daemon(case):
    last = None
    for fact in case.before:
        if fact.kind in ("daemon-end", "start-failed", "start-refused", "no-socket", "no-attach",
                         "daemon-start", "announced", "taken"):
            if fact.kind != "no-socket" or last is None or last.kind != "daemon-end":
                last = fact
    if last is None or last.kind not in ("daemon-end", "start-failed", "no-socket", "no-attach"):
        return None
    reason = "; its start had failed" if last.kind != "daemon-end" or last.data["number"] else ""
    return {"": answer("no-daemon", (last,), reason=reason)}


def _no_answer(case):
    last_s = case.log.events[-1].time_s if case.log.events else None
    pressed_s = case.part.opener.time_s
    if case.is_last and not case.part.after and (
            pressed_s is None or last_s is None or last_s - pressed_s < ANSWER_S):
        if case.part.daemon_end is None:
            return {"": answer("still-running", (case.part.opener,))}
    return {"": answer("no-answer", (case.part.opener,))}


ROLES = {True: "repeater", False: "access point"}
SOCKETS = {"socket-gone": "wifi-daemon-gone", "socket-refuses": "wifi-daemon-gone",
           "socket-hung": "wifi-daemon-hung"}


def _wifi_daemon_away(case):
    """A control socket that the recorder could not use either."""
    latest = {}
    for fact in case.before + case.part.facts:
        if fact.kind.startswith("socket-") and \
                case.mode in ("", ROLES[fact.data["of_stations"]]):
            latest[fact.data["iface"]] = fact
    away = [fact for fact in latest.values() if fact.kind in SOCKETS]
    return {"": answer(SOCKETS[away[0].kind], away[:2], what=" at the press")} if away else None


# What is so without a press, too.
STANDING = (_refused_by_service, _deaf, _no_daemon, _wifi_daemon_away)
RULES = (_refused_by_service, _refused_by_daemon, _deaf, _no_daemon, _wifi_daemon_away,
         _stopped_at_check, _no_answer)
