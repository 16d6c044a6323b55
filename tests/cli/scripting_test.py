#!/usr/bin/python3
"""The command line as scripts and terminals use it: JSON Lines output checked
against the shipped schema (paths with newlines, invalid UTF-8 and very long
names, recovered to their exact bytes), the same JSON Lines for one job and
four, --files-from with NUL-separated names giving the same log as the folder
itself, colour only where it belongs, and the progress line on a 60-column
terminal leaving nothing behind.

Usage: scripting_test.py --bin SONDREL --schema docs/sondrel-jsonl.schema.json
"""
import argparse, base64, fcntl, json, os, re, select, struct, subprocess, sys, tempfile, termios
import unittest

from jsonschema import Draft202012Validator

BIN = SCHEMA = VALIDATOR = None


def env_for(work, **extra):
    env = dict(os.environ, HOME=os.path.join(work, "home"), XDG_CONFIG_HOME=os.path.join(work, "config"),
               XDG_CACHE_HOME=os.path.join(work, "cache"))
    env.pop("NO_COLOR", None)
    env.update(extra)
    return env


def run(work, args, stdin=None):
    """Runs the program in `work` with a home of its own; its status, output and error output."""
    p = subprocess.run([BIN] + args, cwd=work, env=env_for(work), input=stdin, capture_output=True, timeout=300)
    return p.returncode, p.stdout, p.stderr


def slurp(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def records(out):
    """Every line of a JSON Lines output, validated against the schema."""
    assert out.endswith(b"\n"), "the output ends with a line feed"
    recs = [json.loads(line) for line in out[:-1].split(b"\n")]
    for rec in recs:
        VALIDATOR.validate(rec)
    return recs


def path_bytes(rec):
    p = rec["data"]["path"]
    return base64.b64decode(p["bytes"], validate=True) if "bytes" in p else p["text"].encode("utf-8")


def make_tree(root):
    """Audio-named files whose contents draw problems, under awkward names. Returns their paths."""
    root, deep = os.fsencode(root), b"L" * 200 + b"/" + b"M" * 200 + b"/" + b"N" * 200 + b"/"
    names = [root + b"/" + n for n in (b"plain.mp3", b"line\nfeed.flac", b"latin\xe9\xff.wav", b"carriage\r.ogg",
                                       b"tab\tand \\ backslash.m4a", b"sub/" + b"x" * 240 + b".ape",
                                       deep + b"deep \xc3\xa9\xe2\x80\xa8.wv", deep + b"empty.aiff")]
    for i, n in enumerate(names):
        write(n, b"ID3\x03\x00\x00\x00\x00\x00\x05abcde" if i % 2 else b"junk" * i)
    write(root + b"/notes.txt", b"not audio")
    write(root + b"/.hidden.mp3", b"x")
    return names


class Scripting(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="sondrel-scripting-")
        self.addCleanup(self.tmp.cleanup)
        self.work, self.lib = self.tmp.name, os.path.join(self.tmp.name, "lib")
        self.files = make_tree(self.lib)

    def test_jsonl_validates_recovers_exact_paths_and_ignores_jobs(self):
        outs = {}
        for jobs in ("1", "4"):
            rc, out, err = run(self.work, ["--format", "jsonl", "--jobs", jobs, self.lib])
            self.assertEqual(rc, 1, err)
            recs = records(out)
            files = recs[1:-1]
            self.assertEqual([r["type"] for r in recs], ["begin"] + ["file"] * len(files) + ["summary"])
            self.assertEqual(sorted(path_bytes(r) for r in files), sorted(self.files))
            for r in files:
                self.assertTrue(os.path.exists(path_bytes(r)))
                self.assertEqual("bytes" in r["data"]["path"], b"\xff" in path_bytes(r))
            s = recs[-1]["data"]
            self.assertEqual(s["files_scanned"], len(self.files))
            self.assertEqual(s["problems"], sum(len(r["data"]["problems"]) for r in files))
            self.assertEqual(s["exit_status"], rc)
            outs[jobs] = out.split(b"\n", 1)[1]
        self.assertEqual(outs["1"], outs["4"], "byte-identical after the begin record")

        # Every file logged, a filter, and a log file: still valid, and the
        # filter leaves clean files with empty problem lists.
        log = os.path.join(self.work, "out.jsonl")
        # The second --log run replaces the first: a JSON Lines log is a log of this program.
        for args in (["--all-files"], ["--min-severity", "damage"], ["--select", "file"], ["--log", log],
                     ["--log", log]):
            rc, out, err = run(self.work, ["--format", "jsonl", "--jobs", "2"] + args + [self.lib])
            self.assertIn(rc, (0, 1), err)
            recs = records(slurp(log) if "--log" in args else out)
            self.assertEqual(len(recs), len(self.files) + 2, args)

    def test_files_from_gives_the_same_log_as_the_folder(self):
        rc, whole, err = run(self.work, [self.lib])
        self.assertEqual(rc, 1, err)
        listing = subprocess.run(["find", self.lib, "-print0"], capture_output=True, check=True).stdout
        rc, listed, err = run(self.work, ["--files-from", "-", "-0"], stdin=listing)
        self.assertEqual(rc, 1, err)
        self.assertIn(b"skipped " + os.fsencode(self.lib) + b"/notes.txt: not an audio file", err)
        self.assertEqual(listed.split(b"\n", 1)[1], whole.split(b"\n", 1)[1])
        # Line-separated, from a file: the names without line feeds.
        simple = [f for f in self.files if b"\n" not in f and b"\r" not in f]
        write(os.path.join(self.work, "list.txt"), b"".join(n + b"\n" for n in simple))
        rc, out, err = run(self.work, ["--format", "jsonl", "--files-from", "list.txt"])
        self.assertEqual(sorted(path_bytes(r) for r in records(out)[1:-1]), sorted(simple))
        rc, out, err = run(self.work, ["--files-from", "missing.txt"])
        self.assertEqual((rc, err), (2, b"sondrel: missing.txt: No such file or directory\n"))


def screen(cols, data):
    """The lines a terminal of `cols` columns shows after `data`: text with autowrap, CR, LF, erase-line."""
    rows, row, col = [[]], 0, 0
    for m in re.finditer(r"\x1b\[[0-9;]*([A-Za-z])|(.)", data, re.S):
        ch = m.group(2)
        if m.group(1) == "K":
            del rows[row][col:]
        elif ch == "\r":
            col = 0
        elif ch is not None:
            if ch == "\n" or col >= cols:
                row, col = row + 1, 0
                rows += [[]] if row == len(rows) else []
            if ch != "\n":
                rows[row] += " " * (col - len(rows[row]))
                rows[row][col:col + 1] = [ch]
                col += 1
    return ["".join(r).rstrip() for r in rows]


def on_terminal(args, work, cols=60, stdout_too=False, **env):
    """Runs the program with standard error (and optionally output) on a pseudo-terminal."""
    master, slave = os.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, cols, 0, 0))
    attrs = termios.tcgetattr(slave)
    attrs[1] &= ~termios.ONLCR  # keep line feeds as written
    termios.tcsetattr(slave, termios.TCSANOW, attrs)
    p = subprocess.Popen([BIN] + args, cwd=work, env=env_for(work, **env), stdin=subprocess.DEVNULL,
                         stdout=slave if stdout_too else subprocess.DEVNULL, stderr=slave)
    os.close(slave)
    raw, chunk = b"", b"."
    while chunk:
        if not select.select([master], [], [], 60)[0]:
            p.kill()
            raise AssertionError("no output for 60 s")
        try:
            chunk = os.read(master, 65536)
        except OSError:  # the program has closed the terminal
            chunk = b""
        raw += chunk
    os.close(master)
    return p.wait(), raw


class Terminal(unittest.TestCase):
    def test_progress_fits_sixty_columns_and_colour_only_in_a_text_log_on_a_terminal(self):
        with tempfile.TemporaryDirectory(prefix="sondrel-pty-") as work:
            lib = os.path.join(work, "lib")
            make_tree(lib)
            rc, raw = on_terminal([lib], work, stdout_too=True)
            self.assertIn(b"\x1b[1;31m    000000000000", raw)
            self.assertNotIn(b"Analyzing", raw, "no progress on the terminal the log is shown on")
            for args, env in ((["--color", "never", lib], {}), ([lib], {"NO_COLOR": "1"}),
                              (["--format", "jsonl", lib], {})):
                self.assertNotIn(b"\x1b[", on_terminal(args, work, stdout_too=True, **env)[1], args)
            run(work, ["--color", "always", "--log", "log.txt", lib])
            self.assertNotIn(b"\x1b", slurp(os.path.join(work, "log.txt")))

            for i in range(300):
                write(os.path.join(lib, "a rather long folder name %03d for the progress line/track %03d.mp3"
                                   % (i // 30, i)), b"junk")
            rc, raw = on_terminal(["--jobs", "1", "--log", os.path.join(work, "log.txt"), lib], work)
            self.assertEqual(rc, 1)
            text = raw.decode("utf-8")
            self.assertIn("Examining folder", text, "the progress line was drawn")
            self.assertIn("\u2026", text, "long paths are shortened")
            shown = [l for l in screen(60, text) if l]
            # The final status may wrap; nothing else may be left.
            self.assertRegex("".join(shown).replace(" ", ""), r"^308filesscanned:[^\u2026]*logged\.$", shown)


def main():
    """Reads --bin and --schema (shared with the shard tests) and runs the tests of the calling script."""
    global BIN, SCHEMA, VALIDATOR
    ap = argparse.ArgumentParser()
    ap.add_argument("--bin", required=True)
    ap.add_argument("--schema", required=True)
    a, rest = ap.parse_known_args()
    BIN, SCHEMA = os.path.abspath(a.bin), os.path.abspath(a.schema)
    schema = json.load(open(SCHEMA))
    Draft202012Validator.check_schema(schema)
    VALIDATOR = Draft202012Validator(schema)
    unittest.main(module="__main__", argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
