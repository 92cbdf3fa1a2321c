# SPDX-License-Identifier: ISC
"""The time axis: seconds to places. A long time in which nothing happens is drawn short."""

from dataclasses import dataclass

# A time without a mark that is longer is drawn short, unless most of the picture is such times.
QUIET_S = 6.0
QUIET_SHARE = 0.5  # of the axis, for all quiet times together
BESIDE_QUIET = 16.0  # room on both sides of one, in pixels
STEPS_S = (0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600,
           7200)
STEPS = (1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000)


@dataclass(frozen=True)
class Quiet:
    """A time in which nothing happens, and where it is drawn."""

    begin_s: float
    end_s: float
    left: float
    right: float


class Scale:
    """Maps the times of a picture to places from left to right."""

    def __init__(self, times, left, right, quiet_width):
        """times: of all that is drawn, in any order, one at least; quiet_width: in pixels, or None
        where nothing is drawn short."""
        times = sorted(set(times))
        gaps = [(first, second) for first, second in zip(times, times[1:])
                if quiet_width and second - first > QUIET_S]
        quiet_width = min(quiet_width or 0.0, QUIET_SHARE * (right - left) / max(len(gaps), 1))
        busy_s = times[-1] - times[0] - sum(end_s - begin_s for begin_s, end_s in gaps)
        if gaps and busy_s <= 0:
            quiet_width = (right - left) / len(gaps)
        beside = 2 * min(BESIDE_QUIET, quiet_width / 4)
        room = right - left - quiet_width * len(gaps)
        self.pixels_per_s = room / busy_s if busy_s > 0 else 0.0
        self.left, self.right, self.quiet = left, right, []
        self._knots = [(times[0], left)]
        for begin_s, end_s in gaps:
            known_s, known = self._knots[-1]
            at = known + (begin_s - known_s) * self.pixels_per_s
            self._knots += [(begin_s, at), (end_s, at + quiet_width)]
            self.quiet.append(Quiet(begin_s, end_s, at + beside / 2, at + quiet_width - beside / 2))
        self._knots.append((times[-1], right if len(times) > 1 else left))

    def place(self, time_s):
        """Where a moment is; one outside of the picture is at its edge."""
        before = self._knots[0]
        for knot in self._knots[1:]:
            if time_s <= knot[0]:
                return _between(before, knot, time_s)
            before = knot
        return self._knots[-1][1]

    def ticks(self, apart, steps=STEPS_S):
        """(place, time_s) of the axis's numbers, at least so many pixels apart."""
        step = next((one for one in steps if one * self.pixels_per_s >= apart), steps[-1])
        found, number = [], int(self._knots[0][0] // step)
        for left, right in self._busy():
            # Quiet times are skipped: they may hold more numbers than anyone can draw.
            number = max(number, int(left // step))
            while number * step <= right:
                time_s = round(number * step, 3)
                if time_s >= left and _apart(found, self.place(time_s), apart):
                    found.append((self.place(time_s), time_s))
                number += 1
        return found

    def _busy(self):
        """(begin, end) in seconds of the times that are drawn in full length."""
        edges = [self._knots[0][0]]
        for quiet in self.quiet:
            edges += [quiet.begin_s, quiet.end_s]
        edges.append(self._knots[-1][0])
        return list(zip(edges[::2], edges[1::2]))


def _between(before, knot, time_s):
    (first_s, first), (second_s, second) = before, knot
    if time_s <= first_s or second_s <= first_s:
        return first
    return first + (time_s - first_s) / (second_s - first_s) * (second - first)


def _apart(found, place, apart):
    return not found or place - found[-1][0] >= apart * 0.9
