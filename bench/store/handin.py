"""How runs come into a store: those that have just ended, and those that wait for it."""
import contextlib
import hashlib
import json
import os
import re

from common.commandline import file_name
from common.failure import Failure
from common.files import read_json, replace_file
from common.terminal import say
from store.rows import key_of
from store.store import Store, is_server, name_of

AT_ONCE = 200  # files a transaction: neither one each, which is slow, nor all in memory


def add_store_option(parser):
    parser.add_argument(
        "--store", metavar="STORE", type=file_name, help="Store of all runs: an SQLite file, or "
        "postgresql://USER@HOST/NAME (default: units.sqlite in the folder of the reports).")


def store_of(args):
    """--store, and which one it is: unless somebody says otherwise, a file in the folder that
    --report names."""
    return f"{args.report}/units.sqlite" if args.store is None else args.store


def store_runs(records, where, base):
    """Stores the runs with these records, each by the folder of its report, and those that still
    wait below `base`. When the store cannot be reached they wait there, which is said: nothing that
    happens here ends a test."""
    folder = _waiting_folder(where, base)
    kept = False
    for report in sorted(records, key=str):  # first, lest it be lost with this process
        try:
            _keep(records[report] | {"folder": os.path.abspath(report)}, folder)
            kept = True
        except Failure as problem:
            say(f"{problem}; this run is not in the store. Hand it in later: bench units --hand-in "
                f"{report}/report.json", bad=True)
    try:
        hand_in_waiting(where, base)
        with contextlib.suppress(OSError):  # other stores' runs may wait there
            os.rmdir(folder)
            os.rmdir(f"{base}/waiting")
    except Failure as away:
        later = f"\nThe run waits in {folder} and goes in with the next one, or by `bench units " \
            f"--hand-in --store {name_of(where)} --report {base}`"
        say(f"{away}{later if kept else ''}", bad=True)


def hand_in_waiting(where, base):
    """Hands in what waits for the store below `base`. Returns how many runs were new to it. Raises
    Failure when it cannot be reached; then everything still waits."""
    return _hand_in(where, _json_files(_waiting_folder(where, base)), remove=True)


def hand_in(where, paths):
    """The same with records in files, report.json for example, or in all .json files of folders;
    the files stay. Those that hold none are named and left out."""
    files = []
    for path in paths:
        if not os.path.exists(path):
            raise Failure(f"{path}: no such file or folder")
        files += _json_files(path) if os.path.isdir(path) else [path]
    return _hand_in(where, files, remove=False)


def _waiting_folder(where, base):
    """Each store has a folder of its own, so that runs are not handed in to another: the same from
    whichever folder a file is named."""
    whole = name_of(where) if is_server(where) else os.path.abspath(where)
    # A name for people; the hash tells stores apart.
    name = re.sub(r"[^\w.-]+", "-", os.path.basename(whole)[:40], flags=re.ASCII)
    return f"{base}/waiting/{name}-{hashlib.sha256(os.fsencode(whole)).hexdigest()[:8]}"


def _keep(record, folder):
    """Raises Failure when there is no place for it."""
    content = json.dumps(record).encode()
    for last in (False, True):
        with contextlib.suppress(OSError):
            os.makedirs(folder, exist_ok=True)
        try:
            return replace_file(f"{folder}/{key_of(record)}.json", content)
        except Failure:
            if last:  # else another station may have taken away the folder, empty
                raise


def _json_files(folder):
    return [os.path.join(place, name) for place, _, names in os.walk(folder)
            for name in names if name.lower().endswith(".json") and name[0] != "."]


def _hand_in(where, files, remove):
    added = 0
    with Store(where) as store:
        for begin in range(0, len(files), AT_ONCE):
            records = {}
            for file in files[begin:begin + AT_ONCE]:
                try:
                    records[file] = _record_in(file)
                except Failure as wrong:
                    if not remove or os.path.exists(file):  # else another station handed it in
                        say(str(wrong), bad=True)
            added += store.add(records.values())
            for file in records if remove else ():
                with contextlib.suppress(OSError):
                    os.unlink(file)
            if len(files) > AT_ONCE:
                say(f"{min(begin + AT_ONCE, len(files))} of {len(files)}")
    return added


def _record_in(file):
    record = read_json(file)
    if record.get("format") != 1 or "T" not in str(record.get("ended", "")):
        raise Failure(f"{file}: no record of a run that has ended; left out")
    return record
