# SPDX-License-Identifier: ISC
"""Places a picture: the row of each mark, where its words fit, and how high it all is."""

from dataclasses import dataclass, field

from report.scale import STEPS, STEPS_S, Scale

# The width of a letter by the widest of the fonts that a page may be shown with.
LETTER, BOLD_LETTER = 0.62, 0.69  # of the font's size
MARK = 14.0  # a mark with a little room
GAP = 7.0
BOLD = ("good", "bad")
MOST_REPEATS = 3  # of the same words in a lane; after them the mark says it all
MORE_ROWS = 4  # for the words of these
FEWEST_LETTERS = 9  # that words are cut to
CURVE_HEIGHT = 112.0
AXIS_HEIGHT = 34.0
EDGE = 20.0  # words whose middle were so near to the left edge begin there
PERCENT_WIDTH = 34.0
HIGHEST_PERCENT = 50  # that the axis of a curve reaches at least: all estimates begin there


@dataclass(frozen=True)
class Form:
    """How wide a picture is and how much it tells in it."""

    name: str
    width: float
    titles: float  # the width of the lanes' titles; 0: they stand above their lanes
    font: float
    row: float  # the height of a row of marks
    rows: int  # of marks in a lane at most
    letters: int  # of a mark's words at most
    quiet: float  # the width of a time in which nothing happens
    ticks: float  # how far apart numbers on the axis are at least


FORMS = (
    Form("wide", 1160, 150, 12, 21, 8, 64, 150, 70),
    Form("middle", 700, 130, 11.5, 20, 10, 40, 110, 60),
    Form("narrow", 358, 0, 12, 21, 9, 26, 84, 52),
)


@dataclass
class Placed:
    """A mark in its place: one mark, or several that would cover each other."""

    left: float
    top: float
    marks: list
    label: str = ""
    label_left: float = 0.0
    label_right: float = 0.0
    end: bool = False  # the words stand before the mark, and end there


@dataclass
class Bar:
    """A span in its place."""

    left: float
    top: float
    width: float
    span: object
    focusable: bool = True


@dataclass
class Strip:
    """A lane in its place."""

    lane: object
    top: float
    height: float
    title_top: float
    placed: list = field(default_factory=list)
    bars: list = field(default_factory=list)


@dataclass
class Graph:
    """A curve in its place."""

    top: float
    height: float
    title_top: float
    points: list  # (left, top, percent, event, time_s)
    limit_top: float
    limit: int

    def path(self):
        """The curve's line: a value holds until the next one."""
        found = []
        for left, top, *_ in self.points:
            found.append("M%.1f %.1f" % (left, top) if not found else "H%.1fV%.1f" % (left, top))
        return "".join(found)

    def label(self, number):
        """Whether a point has room for its number: the first and the last have."""
        last = len(self.points) - 1
        if number in (0, last):
            return number == 0 or self.points[-1][0] - self.points[0][0] > PERCENT_WIDTH
        apart = min(self.points[number][0] - self.points[number - 1][0],
                    self.points[number + 1][0] - self.points[number][0])
        return apart > PERCENT_WIDTH


@dataclass
class Layout:
    """A picture in its place."""

    form: Form
    width: float
    height: float
    track: tuple  # (left, right)
    top: float  # of the first lane
    bottom: float
    ticks: list  # (place, text)
    quiet: list  # (left, right, text)
    zero: float
    zero_words: str
    strips: list
    graph: Graph | None
    has_zero: bool

    @property
    def edge(self):
        """What stands further left begins at its place: its middle has no room there."""
        return EDGE

    @property
    def title_left(self):
        """Where the lanes' titles begin: beside the line of the press, where they stand above."""
        return 10 if self.form.titles else self.track[0] + 8

    def title_of(self, lane):
        """A lane's title, as long as it has room."""
        room = (self.form.titles or self.width) - self.title_left
        return cut(lane.title, int(room / (self.form.font * BOLD_LETTER)))


def lay_out(picture, form):
    """The picture in that form."""
    left, right = (form.titles or 0) + 12, form.width - 14
    quiet_width = form.quiet if picture.has_times else None
    scale = Scale(_times(picture), left, right, quiet_width)
    strips, graph, at = [], None, AXIS_HEIGHT
    for lane in picture.lanes:
        strip = _strip(lane, scale, form, at)
        strips.append(strip)
        at += strip.height
        if lane.id == "daemon" and picture.curve:
            graph = _graph(picture.curve, scale, form, at)
            at += graph.height
    quiet = [(one.left, one.right, _lasting(one.end_s - one.begin_s)) for one in scale.quiet]
    return Layout(form, form.width, at + 6, (left, right), AXIS_HEIGHT, at,
                  _ticks(picture, scale, form), quiet if picture.has_times else [],
                  scale.place(0.0), picture.zero, strips, graph, picture.has_times)


def text_width(text, font, bold=False):
    """How wide a text is at most, in pixels."""
    return len(text) * font * (BOLD_LETTER if bold else LETTER)


def cut(text, letters):
    """A text that is not longer."""
    if len(text) <= letters:
        return text
    return text[:letters - 1].rstrip(" ,;:") + "…" if letters > 0 else ""


def _times(picture):
    times = [0.0, picture.begin_s, picture.end_s]
    times += [mark.time_s for lane in picture.lanes for mark in lane.marks]
    # A span that waits is no event: its ends are.
    times += [time_s for lane in picture.lanes for span in lane.spans
              for time_s in (span.begin_s, span.end_s)]
    if picture.curve:
        times += [point[0] for point in picture.curve.points]
    return times


def _lasting(seconds):
    if seconds < 100:
        return "%.0f s" % seconds
    return "%d min %02d s" % divmod(round(seconds), 60)


def _ticks(picture, scale, form):
    """(place, text) of the numbers on the axis that have room; the press goes before them."""
    if not picture.has_times:
        return [(place, "%d" % (number + 1)) for place, number in scale.ticks(form.ticks, STEPS)]
    found = [(place, "%g" % time_s if time_s else picture.zero)
             for place, time_s in scale.ticks(form.ticks, STEPS_S)]
    zero = scale.place(0.0)
    room = text_width(picture.zero, form.font, bold=True) + GAP
    # At the picture's edge the word begins where it else has its middle.
    left, right = (zero, zero + room) if zero < EDGE else (zero - room / 2, zero + room / 2)

    def covers(place, text):
        half = text_width(text, form.font) / 2
        return place != zero and left < place + half and place - half < right
    return [one for one in found if not covers(*one)]


def _strip(lane, scale, form, top):
    inner = top + (0 if form.titles else form.row - 2) + 5
    bars, bars_height = _bars(lane, scale, inner)
    placed, rows = _place_marks(lane.marks, scale, form)
    first = inner + bars_height
    for one in placed:
        one.top = first + one.top * form.row + form.row / 2
    height = first + max(rows, 1 if not bars else 0) * form.row + 5 - top
    title_top = top + (15 if not form.titles else min(height / 2 + 4, 22))
    return Strip(lane, top, height, title_top, placed, bars)


def _bars(lane, scale, top):
    """Spans go in rows of thin bars; what runs at the same time goes below each other."""
    rights, bars = [], []
    with_mark = {mark.event for mark in lane.marks}
    for span in sorted(lane.spans, key=lambda one: (one.kind == "command", one.begin_s)):
        left = scale.place(span.begin_s)
        width = max(scale.place(span.end_s) - left, 2.5)
        row = next((row for row, right in enumerate(rights) if right + 1 <= left), len(rights))
        rights[row:row + 1] = [left + width]
        focusable = span.kind == "command" and span.event not in with_mark
        bars.append(Bar(left, top + row * 9 + 2, width, span, focusable))
    return bars, len(rights) * 9 + (2 if rights else 0)


def _place_marks(marks, scale, form):
    """The rows from the top: each mark takes the first row in which it and its words have room.

    Where all rows are taken by words they become shorter; where they are taken by marks, the mark
    that is in the way tells for both.
    """
    rows, placed, said = [], [], {}
    for mark in sorted(marks, key=lambda one: one.time_s):
        at = scale.place(mark.time_s)
        said[mark.words] = said.get(mark.words, 0) + 1
        is_new = said[mark.words] <= MOST_REPEATS
        one = (is_new and _with_words(rows, at, mark, form)
               or _without_words(rows, at, form) or _instead_of_words(rows, at, form))
        if one is None:
            max((row for row in rows), key=lambda last: last.left).marks.append(mark)
            continue
        one.marks.append(mark)
        rows[int(one.top):int(one.top) + 1] = [one]
        placed.append(one)
    return placed, len(rows)


def _with_words(rows, at, mark, form):
    letter = form.font * (BOLD_LETTER if mark.kind in BOLD else LETTER)
    beside = MARK / 2 + 4
    right, left = form.width - 4 - at - beside, at - beside - form.titles - 6
    text = cut(mark.words, form.letters)
    # Behind the mark if there is room, else before it; where there is none the longer side decides.
    before = len(text) * letter > right and left > right
    text = cut(text, max(int((left if before else right) / letter), 0))
    if len(text) < min(FEWEST_LETTERS, len(mark.words)):
        return None
    width = len(text) * letter + beside
    most = form.rows + (MORE_ROWS if mark.kind in BOLD else 0)
    row = _free_row(rows, at - width if before else at - MARK / 2, most)
    if row is None:
        return None
    if before:
        return Placed(at, row, [], text, at - MARK / 2 - 3, at + MARK / 2, True)
    return Placed(at, row, [], text, at + MARK / 2 + 3, at + width)


def _without_words(rows, at, form):
    row = _free_row(rows, at - MARK / 2, form.rows)
    return None if row is None else Placed(at, row, [], "", at, at + MARK / 2)


def _instead_of_words(rows, at, form):
    """Takes the room of words: of those that tell least, and of them the ones furthest away."""
    have_room = [one for one in rows if one.left + MARK / 2 + GAP <= at - MARK / 2]
    if not have_room:
        return None
    last = min(have_room, key=lambda one: (one.marks[0].kind in BOLD, one.left))
    letters = int((at - MARK / 2 - GAP - last.label_left) / (form.font * BOLD_LETTER))
    keeps = letters >= FEWEST_LETTERS and not last.end
    last.label = cut(last.label, letters) if keeps else ""
    return Placed(at, rows.index(last), [], "", at, at + MARK / 2)


def _free_row(rows, begins_at, most):
    for number, last in enumerate(rows):
        if last.label_right + GAP <= begins_at:
            return number
    return len(rows) if len(rows) < most else None


def _graph(curve, scale, form, top):
    inner = top + (0 if form.titles else form.row - 2)
    height = CURVE_HEIGHT + inner - top
    highest = max(percent for percent in [HIGHEST_PERCENT] + [one[1] for one in curve.points])

    def place(percent):
        return inner + 18 + (1 - percent / highest) * (CURVE_HEIGHT - 28)

    points = [(scale.place(time_s), place(percent), percent, event, time_s)
              for time_s, percent, event in curve.points]
    return Graph(top, height, top + (15 if not form.titles else 22), points, place(curve.limit),
                 curve.limit)
