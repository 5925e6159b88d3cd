#!/usr/bin/env python3
"""Compares what the library makes of JSON texts with what Python's json module does.

veljson_python_test.py FILTER: the program FILTER reads texts and writes them again. Each seed gives
one well-formed text, which both have to accept, and a few that are slightly damaged; where both
accept, what the library writes is the same value for Python."""
import json
import random
import subprocess
import sys

SEEDS = 10000
DAMAGES = 3
SAFE_INTEGER = 2**63 - 1


def any_text(rng):
    """Characters of every kind, but no surrogates."""
    kinds = [
        lambda: chr(rng.randrange(32, 127)),
        lambda: chr(rng.randrange(1, 32)),
        lambda: rng.choice('"\\/\x7f'),
        lambda: chr(rng.randrange(0x80, 0x800)),
        lambda: chr(rng.choice([rng.randrange(0x800, 0xD800), rng.randrange(0xE000, 0x10000)])),
        lambda: chr(rng.randrange(0x10000, 0x110000)),
        lambda: "\0",
    ]
    weights = [20, 2, 3, 2, 2, 2, 0.1]
    return "".join(rng.choices(kinds, weights)[0]() for _ in range(rng.randrange(0, 12)))


def any_number(rng):
    kind = rng.randrange(4)
    if kind == 0:
        return rng.randrange(-100, 100)
    if kind == 1:
        return rng.randrange(-SAFE_INTEGER - 1, SAFE_INTEGER + 1)
    if kind == 2:
        return round(rng.uniform(-1000, 1000), rng.randrange(1, 8))
    return rng.randrange(-(2**53), 2**53) / 2 ** rng.randrange(1, 40)


def any_value(rng, depth):
    kind = rng.randrange(10)
    if depth > 0 and kind < 3:
        return [any_value(rng, depth - 1) for _ in range(rng.randrange(0, 6))]
    if depth > 0 and kind < 6:
        return {any_text(rng): any_value(rng, depth - 1) for _ in range(rng.randrange(0, 6))}
    if kind < 8:
        return any_text(rng) if rng.randrange(2) else any_number(rng)
    return rng.choice([True, False, None])


def any_document(rng):
    depth = rng.choice([1, 2, 3, 5])
    while True:
        value = any_value(rng, depth)
        if isinstance(value, (list, dict)):
            return value


class Writer:
    """Writes a value in one of many layouts, with numbers that have no exponents, which the library
    does not read."""

    def __init__(self, rng):
        self.rng = rng
        self.space = rng.choice(["", "", " ", "\n", " \t\r\n"])
        self.escapes = rng.choice([0, 0.1, 1])

    def gap(self):
        return self.space if self.rng.randrange(2) else ""

    def unit(self, unit):
        digits = "%04x" % unit
        return "\\u" + (digits if self.rng.randrange(2) else digits.upper())

    def character(self, ch):
        short = {'"': '\\"', "\\": "\\\\", "/": "\\/", "\b": "\\b", "\f": "\\f", "\n": "\\n",
                 "\r": "\\r", "\t": "\\t"}
        if ch in short and (ch != "/" or self.rng.randrange(2)):
            return short[ch] if self.rng.randrange(2) else self.unit(ord(ch))
        if ord(ch) >= 32 and self.rng.random() >= self.escapes:
            return ch
        if ord(ch) < 0x10000:
            return self.unit(ord(ch))
        pair = ord(ch) - 0x10000
        return self.unit(0xD800 | pair >> 10) + self.unit(0xDC00 | pair & 0x3FF)

    def string(self, text):
        return '"' + "".join(map(self.character, text)) + '"'

    def number(self, value):
        if isinstance(value, int):
            return str(value)
        text = repr(value)
        return text if "e" not in text else format(value, ".45f")

    def list(self, brackets, items):
        text = ("," + self.gap()).join(item + self.gap() for item in items)
        return brackets[0] + self.gap() + text + brackets[1]

    def value(self, value):
        if isinstance(value, list):
            return self.list("[]", [self.value(each) for each in value])
        if isinstance(value, dict):
            return self.list("{}", [self.string(key) + self.gap() + ":" + self.gap() +
                                    self.value(each) for key, each in value.items()])
        if isinstance(value, str):
            return self.string(value)
        if value is True or value is False or value is None:
            return {True: "true", False: "false", None: "null"}[value]
        return self.number(value)

    def text(self, value):
        return (self.gap() + self.value(value) + self.gap()).encode()


def damaged(rng, text):
    """The text with a few bytes changed; none is zero, at which the library's text would end."""
    text = bytearray(text)
    for _ in range(rng.randrange(1, 4)):
        place = rng.randrange(len(text) + 1)
        what = rng.randrange(5)
        if what == 0:
            del text[place:]
        elif what == 1:
            del text[place:place + rng.randrange(1, 4)]
        elif what == 2:
            text[place:place] = rng.choice(b'[]{},:"\\0123456789.-+eEtfnu \t\n\r/').to_bytes(1, "big")
        elif what == 3:
            text[place:place + 1] = bytes([rng.randrange(1, 256)])
        else:
            other = rng.randrange(len(text) + 1)
            text[place:place] = text[min(place, other):max(place, other)]
    return bytes(text)


def python_reads(text):
    """What Python makes of a text, and whether it accepts it."""
    def no_constant(name):
        raise ValueError(name)

    try:
        value = json.loads(text.decode(), parse_constant=no_constant)
    except (ValueError, RecursionError):
        return None, False
    return value, isinstance(value, (list, dict))


def as_the_library_has_it(value):
    """The library ends strings at a zero, takes an integer out of range as zero, and writes six
    digits."""
    if isinstance(value, list):
        return [as_the_library_has_it(each) for each in value]
    if isinstance(value, dict):
        return {key.split("\0")[0]: as_the_library_has_it(each) for key, each in value.items()}
    if isinstance(value, str):
        return value.split("\0")[0]
    if isinstance(value, bool) or value is None:
        return value
    if isinstance(value, int):
        return value if -SAFE_INTEGER - 1 <= value <= SAFE_INTEGER else 0
    return float("%g" % value)


def same(one, other):
    """Equality that takes 1 for 1.0 but not for true."""
    if isinstance(one, list):
        return isinstance(other, list) and len(one) == len(other) and all(map(same, one, other))
    if isinstance(one, dict):
        return (isinstance(other, dict) and one.keys() == other.keys() and
                all(same(one[key], other[key]) for key in one))
    if isinstance(one, bool) or isinstance(other, bool):
        return one is other
    return one == other


def texts_of(seed):
    rng = random.Random(seed)
    text = Writer(rng).text(any_document(rng))
    yield text, True
    for _ in range(DAMAGES):
        bad = damaged(rng, text)
        if bad and b"\0" not in bad:
            yield bad, False


def verdict(text, wellformed, answer):
    """What is wrong with an answer, or None; and whether it was compared."""
    accepted = answer.startswith(b"+")
    value, known = python_reads(text)
    if wellformed and not (accepted and known):
        return "is not accepted", False
    if not accepted or not known:
        return None, False
    # What is not UTF-8 was not known to Python; what is, comes out as it was.
    written = json.loads(answer[1:].decode())
    if not same(written, as_the_library_has_it(value)):
        return "becomes another value", True
    return None, True


def main():
    texts = [each for seed in range(SEEDS) for each in texts_of(seed)]
    data = b"".join(b"%d\n%s" % (len(text), text) for text, _ in texts)
    run = subprocess.run([sys.argv[1]], input=data, stdout=subprocess.PIPE, check=True, timeout=240)
    answers = run.stdout.split(b"\n")[:-1]
    assert len(answers) == len(texts), "%d answers to %d texts" % (len(answers), len(texts))
    compared = failures = 0
    for (text, wellformed), answer in zip(texts, answers):
        what, was_compared = verdict(text, wellformed, answer)
        compared += was_compared
        if what:
            failures += 1
            if failures <= 10:
                print("%r %s: %r" % (text, what, answer))
    print("%d texts, %d compared, %d failures" % (len(texts), compared, failures))
    return 1 if failures or compared < SEEDS else 0


if __name__ == "__main__":
    sys.exit(main())
