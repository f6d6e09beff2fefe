# SPDX-License-Identifier: MIT
"""Multicast DNS messages, written and read without any library, so that a test sees exactly what is on the wire."""

import ipaddress
import struct
from dataclasses import dataclass, field

A, PTR, TXT, AAAA, SRV, NSEC, ANY = 1, 12, 16, 28, 33, 47, 255
TYPE_NAMES = {A: "A", PTR: "PTR", TXT: "TXT", AAAA: "AAAA", SRV: "SRV", NSEC: "NSEC", ANY: "ANY"}
CLASS_IN = 1
TOP_BIT = 0x8000  # of a class: unicast answer wanted (question), cache flush (record)
RESPONSE = 0x8400  # flags of every multicast answer: a response, authoritative

HEADER = struct.Struct("!6H")  # identifier, flags, and the counts of questions, answers, authorities and additionals

HOST_TTL = 120    # RFC 6762 section 10
OTHER_TTL = 4500


def labels(name):
    """A name as a tuple of labels (bytes). Takes a tuple as it is, and splits a text at its dots; a label that holds a
    dot has to come in a tuple: ("My.Printer", "_ipp", "_tcp", "local")."""
    parts = name.rstrip(".").split(".") if isinstance(name, str) else name
    return tuple(part.encode() if isinstance(part, str) else part for part in parts)


def same_name(one, other):
    return [label.lower() for label in labels(one)] == [label.lower() for label in labels(other)]


def text(name):
    """For messages only: the labels joined by dots."""
    return ".".join(label.decode("utf-8", "backslashreplace") for label in name)


@dataclass(frozen=True)
class Question:
    name: tuple
    kind: int
    unicast: bool = False


@dataclass(frozen=True)
class Record:
    """`data`: an address text for A and AAAA, labels for PTR, (priority, weight, port, labels) for SRV, bytes
    otherwise."""
    name: tuple
    kind: int
    data: object
    ttl: int = OTHER_TTL
    flush: bool = False

    def __repr__(self):
        data = text(self.data) if self.kind == PTR else self.data
        return (f"{text(self.name)} {TYPE_NAMES.get(self.kind, self.kind)} {data} "
                f"ttl={self.ttl}{' flush' if self.flush else ''}")


@dataclass
class Message:
    flags: int = 0
    questions: list = field(default_factory=list)
    answers: list = field(default_factory=list)
    authorities: list = field(default_factory=list)
    additionals: list = field(default_factory=list)

    @property
    def is_response(self):
        return bool(self.flags & 0x8000)

    @property
    def records(self):
        return self.answers + self.additionals


def encode_name(name):
    return b"".join(bytes([len(label)]) + label for label in labels(name)) + b"\0"


def encode_data(record):
    if record.kind in (A, AAAA):
        return ipaddress.ip_address(record.data).packed
    if record.kind == PTR:
        return encode_name(record.data)
    if record.kind == SRV:
        return struct.pack("!HHH", *record.data[:3]) + encode_name(record.data[3])
    return record.data


def encode(message):
    """Uncompressed, which every receiver has to understand."""
    parts = [HEADER.pack(0, message.flags, len(message.questions), len(message.answers), len(message.authorities),
                         len(message.additionals))]
    parts += [encode_name(question.name) + struct.pack("!HH", question.kind, CLASS_IN | TOP_BIT * question.unicast)
              for question in message.questions]
    parts += [raw_record(encode_name(record.name), record.kind, encode_data(record), record.ttl,
                         CLASS_IN | TOP_BIT * record.flush)
              for record in message.answers + message.authorities + message.additionals]
    return b"".join(parts)


def raw_record(name, kind, data, ttl=OTHER_TTL, klass=CLASS_IN | TOP_BIT, length=None):
    """A record of name and data as they are on the wire; its length field may lie."""
    return name + struct.pack("!HHIH", kind, klass, ttl, len(data) if length is None else length) + data


def raw_response(*records, count=None):
    """A response of raw records as its answers, whose count may lie."""
    return HEADER.pack(0, RESPONSE, 0, len(records) if count is None else count, 0, 0) + b"".join(records)


def response(*records):
    """A multicast response with these answers, as bytes."""
    return encode(Message(RESPONSE, answers=list(records)))


def query(*questions, known=()):
    """A query, as bytes; `known`: the answers that the querier has already (RFC 6762 section 7.1)."""
    return encode(Message(questions=list(questions), answers=list(known)))


class _Reader:
    def __init__(self, data):
        self.data = data
        self.at = 0

    def take(self, layout):
        values = struct.unpack_from(layout, self.data, self.at)
        self.at += struct.calcsize(layout)
        return values

    def name(self):
        found, at, after = [], self.at, None
        for _ in range(200):
            length = self.data[at]
            if length >= 0xC0:
                after = after or at + 2
                at = struct.unpack_from("!H", self.data, at)[0] & 0x3FFF
                continue
            at += 1
            if length == 0:
                self.at = after or at
                return tuple(found)
            found.append(bytes(self.data[at:at + length]))
            at += length
        raise ValueError("a name without an end")

    def record(self):
        name = self.name()
        kind, record_class, ttl, length = self.take("!HHIH")
        end = self.at + length
        if kind in (A, AAAA):
            data = str(ipaddress.ip_address(bytes(self.data[self.at:end])))
        elif kind == PTR:
            data = self.name()
        elif kind == SRV:
            data = (*self.take("!HHH"), self.name())
        else:
            data = bytes(self.data[self.at:end])
        self.at = end
        return Record(name, kind, data, ttl, bool(record_class & TOP_BIT))


def decode(data):
    """The message; ValueError for what is none."""
    try:
        reader = _Reader(data)
        _, flags, questions, answers, authorities, additionals = reader.take(HEADER.format)
        message = Message(flags)
        for _ in range(questions):
            name = reader.name()
            kind, question_class = reader.take("!HH")
            message.questions.append(Question(name, kind, bool(question_class & TOP_BIT)))
        message.answers = [reader.record() for _ in range(answers)]
        message.authorities = [reader.record() for _ in range(authorities)]
        message.additionals = [reader.record() for _ in range(additionals)]
        return message
    except (struct.error, IndexError) as error:
        raise ValueError(f"no DNS message: {error}") from error


def txt_data(entries):
    """TXT data of texts (or bytes), each an entry: ["rp=ipp/print"]."""
    parts = [entry.encode() if isinstance(entry, str) else entry for entry in entries]
    return b"".join(bytes([len(part)]) + part for part in parts) or b"\0"
