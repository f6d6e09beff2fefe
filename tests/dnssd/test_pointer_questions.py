# SPDX-License-Identifier: MIT
"""When pointers are asked for, what the questions say, and what follows from the questions of others.

All of it takes its time, so it is told in one story: each of its types is followed for itself, and they pass in the
same fourteen seconds.
"""

import time

import pytest

import driver as d
from pointer_place import SHORT_OF, Place, events, is_over, pointer, type_name
from testbed import dns, let_pass_until, wait_until

TRUNCATED = 0x0200
CROWD = [b"Service number %03d" % number for number in range(300)]
FRAME_BYTES = 1472  # of an Ethernet frame, what IPv4 and UDP leave

QUIET = ("_quiet._tcp", "_known._tcp", "_crowd._tcp", "_ageing._tcp", "_closing._tcp")
ASKED = ("_asked._tcp", "_knowing._tcp", "_unicast._tcp")
MISSED = ("_four._tcp", "_three._tcp")
BACK = "_back._tcp"


class Story(Place):
    """Each browse goes by its type."""

    def run(self):
        self.begin()
        self.first_question()
        self.second_question()
        self.others_ask()
        let_pass_until(self.said_at + 3.7)
        self.browsed_again_at = time.monotonic()
        self.browse(BACK + " again", BACK)
        self.growing_old()
        self.wait_asked(4, "_quiet._tcp")
        self.given_up = self.wait_reply("_four._tcp", "Silent", False)

    def begin(self):
        self.browse("_first._tcp", "_first._tcp")  # makes the server, so that the others' times are their own
        self.wait_asked(1, "_first._tcp")
        self.browsed_at = time.monotonic()
        for regtype in (*QUIET, *ASKED, *MISSED, BACK):
            self.browse(regtype, regtype)

    def first_question(self):
        self.wait_asked(1, *QUIET, *ASKED, *MISSED, BACK)
        self.said_at = time.monotonic()
        self.say(pointer("_ageing._tcp", "Silent", 10), pointer("_ageing._tcp", "Answering", 10),
                 pointer("_closing._tcp", "One", 8), pointer(BACK, "One", 4),
                 *[pointer(regtype, name) for regtype in MISSED for name in ("Silent", "Answering")])
        for first in range(0, len(CROWD), 50):
            self.say(*[pointer("_crowd._tcp", name) for name in CROWD[first:first + 50]])
        self.near.wait("_crowd._tcp", len(CROWD))
        self.crowd_at = time.monotonic()
        self.wait_reply(BACK, "One")
        self.near.release(BACK)
        self.ask(*MISSED)
        self.asked_at = time.monotonic()

    def second_question(self):
        self.wait_asked(2, *QUIET, *ASKED)
        self.second_at = max(self.times(regtype, protocol)[1] for regtype in ASKED for protocol in ("IPv4", "IPv6"))
        self.air.say(pointer("_known._tcp", "Four"), pointer("_known._tcp", "Brief", 3), over="IPv4")
        self.air.say(pointer("_known._tcp", "Six"), over="IPv6")
        let_pass_until(self.asked_at + 1.05)
        self.ask(*MISSED)
        self.say(*[pointer(regtype, "Answering") for regtype in MISSED])

    def others_ask(self):
        """Half a second before the third question is due. And the others' third and fourth for what is missed."""
        let_pass_until(self.second_at + 1.4)
        self.others_asked_at = time.monotonic()
        self.ask("_asked._tcp")
        self.ask("_knowing._tcp", known=[pointer("_knowing._tcp", "Theirs")])
        self.ask("_unicast._tcp", unicast=True)
        self.ask(*MISSED)
        let_pass_until(self.others_asked_at + 1.05)
        self.fourth_at = time.monotonic()
        self.ask("_four._tcp")

    def growing_old(self):
        let_pass_until(self.said_at + 7.8)
        since = time.monotonic()
        wait_until(lambda: self.times("_ageing._tcp", "IPv4", since), d.DEADLINE, "a question for what grows old")
        self.say(pointer("_ageing._tcp", "Answering", 10))
        self.wait_reply("_ageing._tcp", "Silent", False)

    def query(self, question, protocol):
        """The packet that asks, and those that go on with it: what they say may be about other types as well."""
        sent = [packet for packet in self.air.sent_by(*self.air.near) if is_over(packet, protocol)
                and packet.time >= question.time
                and packet.message and not packet.message.is_response
                and (packet is question or not packet.message.questions)]
        last = next(number for number, packet in enumerate(sent) if not packet.message.flags & TRUNCATED)
        return sent[:last + 1]

    def known_in(self, query, regtype):
        return {record.data[0]: record.ttl for packet in query for record in packet.message.answers
                if dns.same_name(record.name, type_name(regtype))}


@pytest.fixture(name="story", scope="module")
def make_story(module_link):
    story = Story(module_link)
    try:
        story.run()
    finally:
        print(story.near.dump(), story.air.story(), sep="\n")
    return story


def gaps(times):
    return [later - earlier for earlier, later in zip(times, times[1:])]


@pytest.mark.parametrize("protocol", ["IPv4", "IPv6"])
def test_the_intervals_between_questions_double(story, protocol):
    times = story.times("_quiet._tcp", protocol)
    assert 0.02 - SHORT_OF <= times[0] - story.browsed_at < 1
    assert len(times) >= 4
    for gap, least in zip(gaps(times), (1, 2, 4)):
        assert least - SHORT_OF <= gap < 1.5 * least


@pytest.mark.parametrize("protocol", ["IPv4", "IPv6"])
def test_what_is_looked_for_at_about_the_same_time_is_asked_for_together(story, protocol):
    regtypes = (*QUIET, *ASKED, *MISSED, BACK)
    packets = {story.questions(regtype, protocol)[0].time for regtype in regtypes}
    # Those that were begun after a packet had gone have the next one.
    assert len(packets) <= len(regtypes) / 2


def test_questions_are_for_pointers_and_answers_to_everybody(story):
    packets = story.questions("_quiet._tcp")
    question = dns.Question(type_name("_quiet._tcp"), dns.PTR, unicast=False)
    assert packets and all(question in packet.message.questions for packet in packets)
    assert all(packet.message.flags in (0, TRUNCATED) and packet.destination in ("224.0.0.251", "ff02::fb")
               for packet in packets)


@pytest.mark.parametrize("protocol", ["IPv4", "IPv6"])
@pytest.mark.parametrize("regtype", QUIET + ASKED + MISSED)
def test_no_two_questions_are_within_a_second(story, regtype, protocol):
    assert min(gaps(story.times(regtype, protocol))) >= 1 - SHORT_OF


def test_whoever_comes_back_asks_as_at_first(story):
    times = story.times(BACK, "IPv4", story.browsed_again_at)
    assert 0.02 - SHORT_OF <= times[0] - story.browsed_again_at < 1
    assert min(gaps(times)) >= 1 - SHORT_OF


def test_what_is_known_stands_in_the_question_over_either_protocol(story):
    third = {protocol: story.questions("_known._tcp", protocol)[2] for protocol in ("IPv4", "IPv6")}
    four, six = (story.known_in(story.query(third[protocol], protocol), "_known._tcp") for protocol in ("IPv4", "IPv6"))
    assert sorted(four) == sorted(six) == [b"Four", b"Six"]  # whichever protocol it was received over
    assert all(4490 <= ttl < 4500 for ttl in (*four.values(), *six.values()))
    # It is there still, but half of its life is over.
    assert story.replies("_known._tcp", "Brief", True)[0].time < third["IPv4"].time < story.replies("_known._tcp",
                                                                                                    "Brief",
                                                                                                    False)[0].time


def test_very_many_known_answers_come_in_several_packets(story):
    packets = story.query(story.questions("_crowd._tcp", "IPv4", story.crowd_at)[0], "IPv4")
    assert len(packets) > 2 and all(len(packet.data) <= FRAME_BYTES for packet in packets)
    assert sorted(story.known_in(packets, "_crowd._tcp")) == CROWD


def test_what_grows_old_is_asked_for_over_its_protocol(story):
    regular = story.times("_ageing._tcp", "IPv6")
    again = [at for at in story.times("_ageing._tcp", "IPv4") if min(abs(at - other) for other in regular) > 0.5]
    assert len(again) >= 2
    assert again[0] >= story.said_at + 8 - SHORT_OF


def test_what_nobody_confirms_is_gone_at_the_end_of_its_lifetime(story):
    gone = story.replies("_ageing._tcp", "Silent", False)[0].time - story.said_at
    assert 10 - SHORT_OF <= gone < 12
    assert not story.replies("_ageing._tcp", "Answering", False)


def test_what_another_has_just_asked_is_not_asked_over_that_protocol(story):
    def asked(regtype, protocol):
        """Where the third question belongs: two seconds after the second one."""
        return [at for at in story.times(regtype, protocol) if story.second_at + 0.5 < at < story.second_at + 4]

    assert not asked("_asked._tcp", "IPv4") and asked("_asked._tcp", "IPv6")
    assert asked("_knowing._tcp", "IPv4") and asked("_unicast._tcp", "IPv4")
    assert story.times("_asked._tcp", "IPv4", story.second_at + 4)  # the fourth one


def test_what_leaves_four_questions_of_others_unanswered_is_given_up(story):
    assert 10 - SHORT_OF <= story.given_up.time - story.fourth_at < 13
    assert events(story.near, "_four._tcp") == [(True, "Silent"), (True, "Answering"), (False, "Silent")]


def test_three_unanswered_questions_are_not_enough(story):
    assert events(story.near, "_three._tcp") == [(True, "Silent"), (True, "Answering")]
