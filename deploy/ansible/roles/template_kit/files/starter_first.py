#!/usr/bin/env python3
"""Lists a template directory first in a starter configuration file, so that
the installer proposes it, and puts everything back after a failed
installation.

  starter_first.py put FILE DIR SAVE   FILE lists DIR first; DIR (and the
                                       folder of FILE) are made when missing;
                                       SAVE records what was there before
  starter_first.py restore SAVE        FILE as SAVE recorded it; the folders
                                       made by "put" removed when empty

Every byte of FILE is kept: one line KEY=DIR goes before the first line of
the key (with that line's spelling of the key, which is matched without
regard to case), or at the end when the file has none. A file that starts
with the UTF-16LE byte-order mark gets the line in UTF-16LE. The new file is
written beside the old one and renamed over it.
"""
import base64
import json
import os
import stat
import sys
import tempfile

KEY = "ConfigurationTemplatesLocation"


def replace_file(path, data, mode):
    fd, staged = tempfile.mkstemp(dir=os.path.dirname(path), prefix=".starter_first.")
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
            f.flush()
            os.fsync(f.fileno())
        os.chmod(staged, mode)
        os.replace(staged, path)
    except BaseException:
        os.unlink(staged)
        raise


def make_folders(path, made):
    """Makes `path` like mkdir -p, adding each folder it makes to `made`."""
    missing = []
    while not os.path.lexists(path):
        missing.append(path)
        path = os.path.dirname(path)
    for folder in reversed(missing):
        os.mkdir(folder)
        made.append(folder)


def with_directory_first(data, directory):
    utf16 = data.startswith(b"\xff\xfe")
    text = data[2:].decode("utf-16-le", "surrogatepass") if utf16 else data.decode(
        "utf-8", "surrogateescape")
    offset, key = len(text), KEY
    if text and not text.endswith("\n"):
        text += "\n"
        offset += 1
    start = 0
    for line in text.split("\n"):
        name = line.split("=", 1)[0]
        if name.lower() == KEY.lower():
            offset, key = start, name
            break
        start += len(line) + 1
    text = text[:offset] + key + "=" + directory + "\n" + text[offset:]
    if utf16:
        return b"\xff\xfe" + text.encode("utf-16-le", "surrogatepass")
    return text.encode("utf-8", "surrogateescape")


def put(path, directory, save):
    record = {"file": path, "data": None, "mode": 0o644, "made": []}
    if os.path.exists(path):
        with open(path, "rb") as f:
            data = f.read()
        record["data"] = base64.b64encode(data).decode()
        record["mode"] = stat.S_IMODE(os.stat(path).st_mode)
    else:
        data = b""
    # What was there is saved before anything changes.
    with open(save, "w") as f:
        json.dump(record, f)
    try:
        make_folders(directory, record["made"])
        make_folders(os.path.dirname(path), record["made"])
    finally:
        with open(save, "w") as f:
            json.dump(record, f)
    replace_file(path, with_directory_first(data, directory), record["mode"])


def restore(save):
    with open(save) as f:
        record = json.load(f)
    if record["data"] is None:
        if os.path.lexists(record["file"]):
            os.unlink(record["file"])
    else:
        replace_file(record["file"], base64.b64decode(record["data"]), record["mode"])
    for folder in reversed(record["made"]):
        try:
            os.rmdir(folder)
        except OSError:
            pass  # not empty: the installer left something there on purpose


def main(argv):
    try:
        if len(argv) == 5 and argv[1] == "put":
            put(argv[2], argv[3], argv[4])
        elif len(argv) == 3 and argv[1] == "restore":
            restore(argv[2])
        else:
            sys.stderr.write(__doc__)
            return 2
    except OSError as error:
        sys.stderr.write("starter_first.py: %s: %s\n" % (error.filename or "", error.strerror))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
