#!/usr/bin/env python3
"""A test station in one page: takes a panel through ICT. Needs python3-serial.

    station.py /dev/ttyUSB0

Frames, check digits and waits are from docs/link-protocol.md. Exit status: 0 if every item
passed and the panel goes on at T1 with its next power-up, 1 if one did not."""
import sys
import time

import serial

# Code, kind of answer, longest time to answer in seconds: what the page says, and 2 at least.
STEPS = [
    ("AB00", "text", 2), ("AA00", "text", 5), ("FF00", "text", 2), ("8000", "frame", 2),
    ("810A", "frame", 2), ("8500", "frame", 20), ("9502", "frame", 20), ("9202", "frame", 3),
    ("0602", "id", 2), ("9002", "text", 60), ("8C00", "frame", 2), ("A200", "frame", 5),
    ("8800", "battery", 2), ("8700", "frame", 20), ("0400", "frame", 5),
]


def check_digits(numbers):
    return b"%02X" % (-sum(numbers) & 0xFF)


def request(code, identity):
    if identity:  # summed over the characters
        body = f"00{code}{identity}".encode()
        return b":" + body + check_digits(body) + b"\r\n"
    body = f"00{code}".encode()
    return b":" + body + check_digits(bytes.fromhex(body.decode())) + b"\r\n"


def is_pass(code, kind, answer):
    if kind == "text":
        return answer.endswith(b"\n")
    if kind == "battery":  # :000328D5 CR
        return (len(answer) == 10 and answer[:3] == b":00" and answer[-1:] == b"\r"
                and answer[7:9] == check_digits(bytes.fromhex(answer[1:7].decode()))
                and 295 <= int(answer[3:7]) <= 360)
    return answer == request(code, None)


def ask(port, code, kind, patience, identity):
    end = b"\r" if kind == "battery" else b"\n"
    for _ in range(3):  # a panel that was not asked properly stays silent: repeat
        port.reset_input_buffer()
        port.write(request(code, identity))
        answer, deadline = b"", time.monotonic() + patience + 0.3
        while not answer.endswith(end) and time.monotonic() < deadline:
            answer += port.read(1)
        if answer:
            return answer
        time.sleep(0.15)
    return b""


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    port = serial.Serial(sys.argv[1], 9600, parity=serial.PARITY_EVEN, rtscts=True,
                         timeout=0.1)
    failed = 0
    for code, kind, patience in STEPS:
        identity = "20254711S12345" if kind == "id" else None
        answer = ask(port, code, kind, patience, identity)
        good = is_pass(code, kind, answer)
        failed += not good
        print("ok  " if good else "FAIL", code, answer or "no answer", flush=True)
    sys.exit(1 if failed else 0)


main()
