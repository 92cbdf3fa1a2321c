# SPDX-License-Identifier: ISC
"""Where things are placed: the axis, the rows of a lane, and the words beside the marks."""

import pytest

from report import layout
from report.lanes import Lane, Mark, Picture, Span
from report.scale import Scale

FORM = layout.FORMS[0]


def test_seconds_are_places_in_proportion():
    scale = Scale([0.0, 2.0, 4.0], 100, 500, 90)
    assert [scale.place(time_s) for time_s in (0.0, 1.0, 3.0, 4.0)] == [100, 200, 400, 500]
    assert (scale.place(-5), scale.place(50)) == (100, 500)
    assert scale.ticks(90) == [(100, 0.0), (200, 1), (300, 2), (400, 3), (500, 4)]
    assert scale.quiet == []


def test_a_quiet_time_is_drawn_short_and_has_no_numbers():
    scale = Scale([0.0, 1.0, 126.0, 127.0], 0, 1000, 100)
    assert [scale.place(time_s) for time_s in (0.0, 1.0, 126.0, 127.0)] == [0, 450, 550, 1000]
    assert [(one.begin_s, one.end_s) for one in scale.quiet] == [(1.0, 126.0)]
    assert scale.quiet[0].left > 450 and scale.quiet[0].right < 550
    assert [time_s for _, time_s in scale.ticks(200)] == [0.0, 0.5, 1.0, 126.5, 127.0]


@pytest.mark.parametrize("times, expected", [
    ([0.0, 6.0], 0), ([0.0, 6.1], 1), ([0.0, 100.0, 200.0, 300.0], 3)])
def test_what_is_a_quiet_time(times, expected):
    assert len(Scale(times, 0, 1000, 100).quiet) == expected


def test_many_quiet_times_leave_half_of_the_axis():
    times = [time_s for number in range(100) for time_s in (number * 60.0, number * 60.0 + 1)]
    scale = Scale(times, 0, 1000, 100)
    assert len(scale.quiet) == 99
    assert sum(scale.place(one.end_s) - scale.place(one.begin_s) for one in scale.quiet
               ) == pytest.approx(500)
    assert scale.place(times[-1]) == pytest.approx(1000)


@pytest.mark.parametrize("times", [[0.0], [0.0, 1000.0], [0.0, 1e9], [0.0, 0.000001]])
def test_odd_times_have_places(times):
    scale = Scale(times, 10, 500, 90)
    assert all(10 <= scale.place(time_s) <= 500 for time_s in times)
    assert len(scale.ticks(60)) < 20


def laid_out(marks, spans=(), form=FORM):
    found = [Mark(time_s, words, None, kind) for time_s, words, kind in marks]
    picture = Picture([Lane("daemon", "kelm", found, list(spans))], 0.0, 10.0)
    return layout.lay_out(picture, form).strips[0]


def rows(strip):
    return [round((one.top - strip.placed[0].top) / FORM.row) for one in strip.placed]


def test_marks_with_room_share_a_row():
    assert rows(laid_out([(1.0, "one", "note"), (3.0, "two", "note"), (5.0, "three", "note")])) == [
        0, 0, 0]


def test_marks_at_one_time_have_rows_of_their_own_and_their_words():
    strip = laid_out([(1.0, "one", "note"), (1.0, "two", "note"), (1.01, "three", "note")])
    assert rows(strip) == [0, 1, 2]
    assert [one.label for one in strip.placed] == ["one", "two", "three"]


def test_words_at_the_right_edge_stand_before_their_mark():
    strip = laid_out([(0.0, "the first one", "note"), (10.0, "the last one of all", "note")])
    assert [(one.end, one.label) for one in strip.placed] == [
        (False, "the first one"), (True, "the last one of all")]


def test_good_and_bad_keep_their_words_where_notes_lose_theirs():
    marks = [(5.0 + number / 10, "a note of some length %d" % number, "note")
             for number in range(20)]
    strip = laid_out(marks + [(7.1, "it failed in the end", "bad")])
    assert [one.label for one in strip.placed if one.marks[0].kind == "bad"] == [
        "it failed in the end"]
    assert any(not one.label for one in strip.placed)


def test_the_same_words_are_written_three_times():
    strip = laid_out([(float(number), "again", "note") for number in range(10)])
    assert [one.label for one in strip.placed] == ["again"] * 3 + [""] * 7


@pytest.mark.parametrize("form", layout.FORMS)
def test_no_mark_is_lost_in_a_crowd(form):
    marks = [(1.0 + number / 1000, "mark %d" % number, "note") for number in range(500)]
    strip = laid_out(marks, form=form)
    assert sorted(mark.words for one in strip.placed for mark in one.marks) == sorted(
        words for _, words, _ in marks)
    assert strip.height < (form.rows + layout.MORE_ROWS + 2) * form.row


def test_long_words_are_cut_to_the_form():
    for form in layout.FORMS:
        label = laid_out([(1.0, "word " * 100, "note")], form=form).placed[0].label
        assert len(label) <= form.letters and label.endswith("…")


def test_spans_at_one_time_lie_below_each_other():
    strip = laid_out([], [Span(1.0, 5.0, "one", None), Span(2.0, 3.0, "two", None),
                          Span(6.0, 6.0, "three", None)])
    tops = [one.top for one in strip.bars]
    assert tops[0] == tops[2] < tops[1]
    assert strip.bars[2].width > 2


@pytest.mark.parametrize("text, letters, expected", [
    ("short", 5, "short"), ("too long", 5, "too…"), ("a, b", 3, "a…"), ("", 3, "")])
def test_cutting(text, letters, expected):
    assert layout.cut(text, letters) == expected
