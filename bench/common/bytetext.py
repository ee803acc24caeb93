"""Bytes as texts: each character of a text stands for one byte."""
import re


def as_bytes(text):
    """Any text; what is no byte becomes "?"."""
    return text.encode("latin-1", "replace").decode("latin-1")


def printable(text):
    names = {"\\": r"\\", "\r": r"\r", "\n": r"\n"}
    return re.sub(r"[^ -\[\]-~]", lambda c: names.get(c[0], rf"\x{ord(c[0]):02x}"), text)


def unprintable(text):
    names = {"r": "\r", "n": "\n"}
    return re.sub(r"\\(?:x(..)|(.))", lambda match: chr(int(match[1], 16)) if match[1]
                  else names.get(match[2], match[2]), text)
