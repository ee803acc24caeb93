"""Files that the bench reads and writes."""
import contextlib
import json
import os
import pathlib
import secrets

from common.failure import Failure

_BENCH = pathlib.Path(__file__).parent.parent
PLANS, PAGES = _BENCH / "plans", _BENCH / "report"


def plain_number(text):
    """A whole number is one however it is written."""
    value = float(text)
    return int(value) if value.is_integer() else value


def _no_number(text):
    raise ValueError(f"{text} is no number")


def read_json(path):
    """The object in a JSON file. Raises Failure, with file and line, when there is none."""
    try:
        value = json.loads(pathlib.Path(path).read_bytes(), parse_float=plain_number,
                           parse_constant=_no_number, strict=False)
    except OSError as error:
        raise Failure(f"{path}: {error.strerror}") from None
    except json.JSONDecodeError as error:
        raise Failure(f"{path}:{error.lineno}: {error.msg}") from None
    except UnicodeDecodeError:
        raise Failure(f"{path}: not in UTF-8") from None
    except ValueError as error:
        raise Failure(f"{path}: {error}") from None
    except RecursionError:
        raise Failure(f"{path}: nested too deeply") from None
    if not isinstance(value, dict):
        raise Failure(f"{path}: no JSON object")
    return value


def replace_file(path, content):
    """Writes a file that is either whole or as it was before. Raises Failure, with what went wrong
    and where."""
    fresh = f"{path}.{secrets.token_hex(4)}"
    try:
        with open(fresh, "xb") as out:
            out.write(content)
            out.flush()
            os.fsync(out.fileno())
        os.replace(fresh, path)
    except OSError as error:
        with contextlib.suppress(OSError):
            os.unlink(fresh)
        raise Failure(f"{path}: {error.strerror}") from None
