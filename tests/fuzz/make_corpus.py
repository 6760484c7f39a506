#!/usr/bin/env python3
"""Writes the inputs of corpus/load_index whose names begin with "file-": whole index files, which no fuzzer is
likely to arrive at. The others are what a fuzzer found, minimised with -merge=1. Usage: make_corpus.py FOLDER"""
import os
import sqlite3
import struct
import sys

PAGE = 512
SCHEMA = """
CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL);
CREATE TABLE dirs (
  id INTEGER PRIMARY KEY,
  parent INTEGER,
  name TEXT NOT NULL,
  mtime INTEGER NOT NULL,
  error INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE files (
  dir INTEGER NOT NULL,
  name TEXT NOT NULL,
  logical INTEGER NOT NULL,
  physical INTEGER NOT NULL,
  mtime INTEGER NOT NULL
);
"""
ROWS = """
INSERT INTO meta VALUES ('format', '1'), ('root', '/sample'), ('scannedAt', '1.5'), ('elapsedMs', '7'),
  ('errorCount', '0'), ('errorSamples', '[]'), ('hardlinksDeduped', '0'), ('linksVersion', '1'),
  ('skippedProtected', '[]'), ('topFiles', '[]'), ('lastEventId', '11'), ('rootDev', '13'), ('complete', '1');
INSERT INTO dirs VALUES (1, NULL, '/sample', 0, 0), (2, 1, 'a', 3, 0), (3, 1, 'b', 3, 1);
INSERT INTO files VALUES (1, 'f1', 100, 512, 5), (2, 'f2', 5000, 8192, 6), (3, 'f2', 5000, 8192, 6);
"""


def index(script="", encoding="UTF-8"):
    """The bytes of a small index after a script, and the root pages of its tables."""
    path = "/tmp/quon-corpus-%d" % os.getpid()
    connection = sqlite3.connect(path, isolation_level=None)
    connection.execute("PRAGMA page_size = %d" % PAGE)
    connection.execute("PRAGMA encoding = '%s'" % encoding)
    connection.executescript(SCHEMA + ROWS + script)
    roots = dict(connection.execute("SELECT name, rootpage FROM sqlite_schema"))
    connection.close()
    with open(path, "rb") as file:
        data = bytearray(file.read())
    os.unlink(path)
    return data, roots


def branch(target, times):
    """A page whose every child is one and the same page."""
    page = bytearray(PAGE)
    page[0:12] = struct.pack(">BHHHBI", 5, 0, times, PAGE - 5 * times, 0, target)
    for cell in range(times):
        at = PAGE - 5 * (cell + 1)
        struct.pack_into(">H", page, 12 + 2 * cell, at)
        struct.pack_into(">IB", page, at, target, 1)
    return page


def endless(table):
    """A table whose tree of pages fans out to one leaf over and over."""
    data, roots = index()
    at = (roots[table] - 1) * PAGE
    data += data[at : at + PAGE]
    for _ in range(8):
        data += branch(len(data) // PAGE, 60)
    data[at : at + PAGE] = branch(len(data) // PAGE, 60)
    struct.pack_into(">I", data, 28, len(data) // PAGE)
    return data


def out_of_order():
    """Two folders whose rows stand in the wrong order."""
    data, roots = index()
    at = (roots["dirs"] - 1) * PAGE
    data[at + 10 : at + 12], data[at + 12 : at + 14] = data[at + 12 : at + 14], data[at + 10 : at + 12]
    return data


def write_ahead():
    """A file that asks for a write-ahead log."""
    data, _ = index()
    data[18:20] = b"\x02\x02"
    return data


def one_page_for_two():
    """Two tables that share their pages."""
    _, roots = index()
    return index(
        "PRAGMA writable_schema = ON;"
        "UPDATE sqlite_schema SET rootpage = %d WHERE name = 'files'" % roots["dirs"]
    )[0]


INPUTS = {
    "sound": lambda: index()[0],
    "utf16": lambda: index(encoding="UTF-16le")[0],
    "endless-meta": lambda: endless("meta"),
    "endless-dirs": lambda: endless("dirs"),
    "endless-files": lambda: endless("files"),
    "out-of-order": out_of_order,
    "write-ahead": write_ahead,
    "cut": lambda: index()[0][: 5 * PAGE + 77],
    "circle": lambda: index("UPDATE dirs SET parent = 3 WHERE id = 2; UPDATE dirs SET parent = 2 WHERE id = 3")[0],
    "twins": lambda: index("UPDATE dirs SET name = 'a'")[0],
    "endless-view": lambda: index(
        "DROP TABLE files; CREATE VIEW files AS WITH RECURSIVE r(dir, name, logical, physical, mtime) AS"
        " (SELECT 1, 'x', 1, 1, 1 UNION ALL SELECT * FROM r) SELECT * FROM r"
    )[0],
    "one-page-for-two": one_page_for_two,
    "deep-json": lambda: index(
        """UPDATE meta SET value = '[{"p":"/x","l":' || printf('%.*c', 3000, '[') || printf('%.*c', 3000, ']')"""
        """ || ',"y":1,"m":1}]' WHERE key = 'topFiles'"""
    )[0],
}


def main():
    folder = sys.argv[1]
    for name, make in INPUTS.items():
        data = b"\0" + bytes(make())
        assert len(data) < 16384, name
        with open(os.path.join(folder, "file-" + name), "wb") as file:
            file.write(data)


main()
