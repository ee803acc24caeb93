"""Where the runs of all units are: an SQLite file, or the PostgreSQL database that
postgresql://[USER[:PASSWORD]@]HOST[:PORT]/NAME[?OPTION=VALUE&...] names. Its tables, which
docs/bench.md describes, are made when they are missing. What is said to it stands in store.sql; its
questions are named as there. All of it raises Failure."""
import contextlib
import functools
import os
import pathlib
import re
import sqlite3
import urllib.parse

from common.failure import Failure
from store.rows import key_of, parts_of, run_of, stored

_SECRET = re.compile("(?<=[?&])(?:ssl)?password(?:=[^&]*)?(?:&|$)")
# Also one with characters that should have been written as %2F and the like.
_PASSWORD = re.compile("(//[^:@/?#]*):(?:[^/?#]*|.*)@")


class Store:
    """For one thread. `with` closes it."""

    def __init__(self, where):
        self._name = name_of(where)
        self._server = is_server(where)
        try:
            self._connection, self._error = (_open_server if self._server else _open_file)(where)
        except Failure as failure:
            raise Failure(f"the store {self._name} cannot be opened: {failure}") from None
        self._make_tables()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._connection.close()

    def add(self, records):
        """Adds the runs with these records (docs/bench.md) that are not there yet, all or, with
        Failure, none. How many are new."""
        with self._transaction():
            new = [(record, key) for key, record in ((key_of(record), record) for record in records)
                   if self._add_run(record, key)]
            parts = [parts_of(record, key) for record, key in new]
            for name, lists in zip(("add level", "add step", "add value"), zip(*parts)):
                self._insert(name, (fields for part in lists for fields in part))
        return len(new)

    def ask(self, question, **parameters):
        """The rows that answer a question; first the titles."""
        with self._transaction():
            # With a name, the rows come from the server as they are read, not all into memory.
            cursor = self._connection.cursor(*["answer"] if self._server else [])
            cursor.execute(self._text(question), parameters)
            first = cursor.fetchone()
            yield [column[0] for column in cursor.description]
            if first is not None:
                yield first
                for row in cursor:  # "yield from" would close a closed store's cursor after Ctrl-C
                    yield row
            cursor.close()

    def rows(self, question, **parameters):
        """All of them, by title."""
        titles, *rows = self.ask(question, **parameters)
        return [dict(zip(titles, row)) for row in rows]

    @contextlib.contextmanager
    def _transaction(self):
        try:
            if not self._server:  # whose driver begins one by itself
                self._connection.execute("BEGIN")
            yield
            self._connection.commit()
        except BaseException as error:
            with contextlib.suppress(self._error):
                self._connection.rollback()
            if isinstance(error, self._error):
                text = str(error).partition("\nLINE ")[0]  # without what was said to it
                raise Failure(f"{self._name}: {text.strip()}") from None
            raise

    def _make_tables(self):
        """Once only: who may write into the tables need not be allowed to make them."""
        if self._has_tables():
            return
        try:
            with self._transaction():
                cursor = self._connection.cursor()
                for statement in _sql("schema").split(";"):
                    cursor.execute(statement)
        except Failure:
            if not self._has_tables():  # else another station has made them meanwhile
                raise

    def _has_tables(self):
        with self._transaction():
            cursor = self._connection.cursor()
            cursor.execute("SELECT to_regclass('runs')" if self._server else
                           "SELECT max(name) FROM sqlite_master WHERE name = 'runs'")
            return cursor.fetchone()[0] is not None

    def _text(self, name):
        """A text of store.sql with its parameters as the driver has them."""
        if not self._server:
            return _sql(name)
        return re.sub(r":(\w+)", r"%(\1)s", _sql(name).replace("%", "%%"))

    def _add_run(self, record, key):
        cursor = self._connection.cursor()
        cursor.execute(self._text("add run"), _row("add run", run_of(record, key)))
        return cursor.rowcount > 0

    def _insert(self, name, many):
        cursor, text = self._connection.cursor(), self._text(name)
        rows = (_row(name, fields) for fields in many)
        if self._server:  # a way there and back is not made for each
            from psycopg2.extras import execute_batch
            execute_batch(cursor, text, rows)
        else:
            cursor.executemany(text, rows)


def is_server(where):
    return re.match("postgres(ql)?:", where, re.IGNORECASE) is not None


def name_of(where):
    """`where` as it may be shown and logged: without the password."""
    if not is_server(where):
        return where
    shown = _SECRET.sub("", _PASSWORD.sub(r"\1@", where, count=1)).rstrip("?&")
    # Scheme and host may be written either way.
    return re.sub(r"^([^/?]*//)([^/?]*@)?([^/?]*)",
                  lambda parts: parts[1].lower() + (parts[2] or "") + parts[3].lower(),
                  shown).replace("%20", " ")


@functools.cache
def _sql(name):
    """A text of store.sql, with those that it names put in."""
    texts = {}
    whole = pathlib.Path(__file__).with_name("store.sql").read_text(encoding="utf-8")
    for text in whole.split("\n-- @")[1:]:
        title, _, content = text.partition("\n")
        texts[title] = content.strip()
    text = texts[name]
    for _ in range(2):
        text = re.sub(r"\$\{(\w+)\}", lambda found: texts[found[1]], text)
    return text


@functools.cache
def _parameters(name):
    return re.findall(r":(\w+)", _sql(name))


def _row(name, fields):
    """The parameters of an insertion."""
    return {parameter: stored(fields.get(parameter)) for parameter in _parameters(name)}


def _open_file(where):
    with contextlib.suppress(OSError):
        os.makedirs(os.path.dirname(where) or ".", exist_ok=True)
    try:
        return sqlite3.connect(where, timeout=20, isolation_level=None), sqlite3.Error
    except sqlite3.Error as error:
        raise Failure(error) from None


def _open_server(where):
    try:
        import psycopg2
    except ImportError:
        raise Failure("psycopg2 is missing; apt-get install python3-psycopg2") from None
    try:
        return psycopg2.connect(**_options(where)), psycopg2.Error
    except psycopg2.Error as error:
        raise Failure(str(error).strip()) from None


def _options(where):
    """What the PostgreSQL client takes, from the URL."""
    try:
        url = urllib.parse.urlsplit(where)
        given = {"user": url.username, "password": url.password, "host": url.hostname,
                 "port": url.port and str(url.port), "dbname": url.path[1:]}
        if ":" in url.netloc and "@" not in url.netloc and "@" in where:
            raise ValueError
    except ValueError:  # whose text may have a part of the password
        raise Failure("its URL is ambiguous; in a password write / as %2F, ? as %3F, # as %23, "
                      "[ as %5B, and in an option @ as %40") from None
    given.update(option.partition("=")[::2] for option in url.query.split("&"))
    # A line waits: seconds, then ms.
    return {"connect_timeout": 5, "tcp_user_timeout": 10000, "options": "--lock_timeout=20000",
            "client_encoding": "UTF8",
            **{name: urllib.parse.unquote(value) for name, value in given.items() if value}}
