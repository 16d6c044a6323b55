#!/usr/bin/python3
"""Shards and their merge: N = 1, 3 and 7 shards run through GNU parallel over
a generated tree merge into the text log and JSON Lines of a single run, byte
for byte; a shard killed midway and restarted with its result cache gives the
same merge; and merge refuses, naming the file, every set of shard outputs that
is not one whole run.

Usage: shards_test.py --bin SONDREL --schema docs/sondrel-jsonl.schema.json
"""
import argparse, json, os, re, signal, sqlite3, subprocess, sys, tempfile, time, unittest

from jsonschema import Draft202012Validator

BIN = SCHEMA = None
START = re.compile(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d")


def make_tree(root):
    """Folders of uneven sizes (one larger than a seventh of the tree), names
    that sort differently by case, one name that is not UTF-8."""
    sizes = [3, 1, 40, 7, 12, 2, 25, 5, 9, 1, 16, 6, 30, 4, 11, 8]
    for f, size in enumerate(sizes):
        folder = os.path.join(root, b"%s%02d" % (b"Ab"[f % 2:f % 2 + 1], f))
        os.makedirs(folder, exist_ok=True)
        for i in range(size):
            name = b"t%03d%s.mp3" % (i, b"\xe9" if (f, i) == (3, 2) else b"")
            with open(os.path.join(folder, name), "wb") as out:
                # A tag that claims more than the file holds, or plain junk.
                out.write(b"ID3\x03\x00\x00\x00\x00\x00\x05abcde" if i % 3 else b"junk" * (i + f + 1))
    return sum(sizes)


class Shards(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="sondrel-shards-")
        self.work = self.tmp.name
        self.lib = os.path.join(self.work, "lib")
        self.total = make_tree(os.fsencode(self.lib))
        self.env = dict(os.environ, HOME=self.work, XDG_CONFIG_HOME=os.path.join(self.work, "config"),
                        XDG_CACHE_HOME=os.path.join(self.work, "cache"))

    def tearDown(self):
        self.tmp.cleanup()

    def run_bin(self, args):
        p = subprocess.run([BIN] + args, cwd=self.work, env=self.env, capture_output=True, timeout=300)
        return p.returncode, p.stdout, p.stderr

    def path(self, name):
        return os.path.join(self.work, name)

    def shards(self, n, extra=()):
        """Runs shards 0..n-1 through GNU parallel (status 1, problems found, is
        success); returns their output files."""
        outs = [self.path(f"s{n}-{k}.jsonl") for k in range(n)]
        cmd = f"{BIN} --shard {{}}/{n} --format jsonl -q {' '.join(extra)} {self.lib} > {self.path(f's{n}-')}{{}}.jsonl; [ $? -le 1 ]"
        p = subprocess.run(["parallel", "-j2", cmd, ":::"] + [str(k) for k in range(n)], env=self.env,
                           capture_output=True, timeout=600)
        self.assertEqual(p.returncode, 0, p.stderr)
        return outs

    def merge(self, files, fmt="text"):
        out = self.path("merged." + fmt)
        rc, _, err = self.run_bin(["merge", "--format", fmt, "--log", out] + files)
        with open(out, "rb") as f:
            return rc, f.read(), err

    def test_merged_shards_equal_one_run(self):
        rc, _, err = self.run_bin(["--log", self.path("single.txt"), self.lib])
        self.assertEqual(rc, 1, err)
        single_text = open(self.path("single.txt"), "rb").read()
        _, single_jsonl, _ = self.run_bin(["--format", "jsonl", self.lib])
        validator = Draft202012Validator(json.load(open(SCHEMA)))
        for n in (1, 3, 7):
            outs = self.shards(n)
            counts = []
            for k, out in enumerate(outs):
                with open(out, "rb") as f:
                    lines = f.read().splitlines()
                begin = json.loads(lines[0])
                validator.validate(begin)
                self.assertEqual(begin["data"]["shard"], {"index": k, "count": n})
                counts.append(len(lines) - 2)
            self.assertEqual(sum(counts), self.total)
            # Balanced within the largest folder (40 files).
            self.assertLessEqual(max(counts) - min(counts), 40 + self.total // n, counts)
            for fmt, single in (("text", single_text), ("jsonl", single_jsonl)):
                rc, merged, err = self.merge(list(reversed(outs)), fmt)
                self.assertEqual(rc, 1, err)
                start = START.search(merged).group(0)
                self.assertEqual(merged, START.sub(start, single, count=1), f"{n} shards, {fmt}")

    def test_killed_shard_restarts_from_its_cache(self):
        # A tree big enough that a shard is still working after its cache
        # has committed its first batch (512 results; a file's result is
        # kept before its record is written).
        noise = os.urandom(8192)
        big = os.path.join(self.work, "big")
        for f in range(8):
            os.makedirs(os.path.join(big, "f%d" % f))
            for i in range(1000):
                with open(os.path.join(big, "f%d" % f, "n%03d.mp3" % i), "wb") as out:
                    out.write(noise[i : i + 4096])
        self.lib = big
        # Results of files changed in the last seconds before a scan are not
        # kept (their time stamps cannot be trusted yet): let the tree settle.
        time.sleep(3.5)
        outs = [self.path(f"k{k}.jsonl") for k in range(3)]
        cache = self.path("k.sqlite")
        for k in (0, 2):
            self.run_bin(["--shard", f"{k}/3", "--format", "jsonl", "--cache-file", cache, "--log", outs[k], big])
        before = sqlite3.connect(cache).execute("SELECT count(*) FROM results").fetchone()[0]
        kept = 0
        for kill in (True, False):
            with open(outs[1], "wb") as out:
                p = subprocess.Popen([BIN, "--shard", "1/3", "--format", "jsonl", "-q", "-j1", "--cache-file",
                                      cache, big], stdout=out, env=self.env)
            if kill:
                deadline = time.time() + 120
                while time.time() < deadline and p.poll() is None:
                    with open(outs[1], "rb") as f:
                        if f.read().count(b"\n") > 600:
                            break
                    time.sleep(0.005)
                p.send_signal(signal.SIGKILL)
                p.wait()
                with open(outs[1], "rb") as f:
                    partial = f.read()
                kept = sqlite3.connect(cache).execute("SELECT count(*) FROM results").fetchone()[0]
                self.assertNotIn(b'"type":"summary"', partial, "the shard was killed midway")
                rc, _, err = self.run_bin(["merge"] + outs)
                self.assertEqual(rc, 2)
                self.assertIn(os.fsencode(outs[1]) + b": truncated", err)
            else:
                self.assertEqual(p.wait(), 1)
        self.assertGreater(kept, before, "finished files were in the cache before the restart")
        rc, merged, _ = self.merge(outs)
        self.assertEqual(rc, 1)
        self.run_bin(["--log", self.path("single.txt"), big])
        with open(self.path("single.txt"), "rb") as f:
            self.assertEqual(START.sub(b"", merged, count=1), START.sub(b"", f.read(), count=1))

    def test_merge_refuses_what_is_not_one_run(self):
        three = self.shards(3)
        seven = self.shards(7)
        other = self.path("other.jsonl")
        self.run_bin(["--shard", "2/3", "--format", "jsonl", "--privacy", "--log", other, self.lib])
        plain = self.path("plain.jsonl")
        self.run_bin(["--format", "jsonl", "--log", plain, self.lib])
        data = open(three[2], "rb").read()
        variants = {
            "cut.jsonl": data[:-3],
            "nosummary.jsonl": data[: data.rstrip(b"\n").rfind(b"\n") + 1],
            "version.jsonl": data.replace(b'"version":"', b'"version":"0.', 1),
        }
        for name, content in variants.items():
            with open(self.path(name), "wb") as f:
                f.write(content)
        cases = [
            ([three[0], three[1]], "shard 2 of 3: missing"),
            ([three[0], three[1], three[1], three[2]], three[1] + ": shard 1 of 3 again (also " + three[1]),
            ([three[0], three[1], seven[2]], seven[2] + ": shard 2 of 7, but " + three[0] + " is a shard of 3"),
            ([three[0], three[1], other], other + ": made with other options than " + three[0] + ": LogPriv=true"),
            ([three[0], three[1], self.path("cut.jsonl")], "cut.jsonl: truncated: its last line is cut short"),
            ([three[0], three[1], self.path("nosummary.jsonl")], "nosummary.jsonl: truncated: no summary record"),
            ([self.path("version.jsonl"), three[0], three[1]], "version.jsonl: made by Sondrel Version 0."),
            ([plain], plain + ": not a shard's output"),
            ([three[0], self.path("absent.jsonl")], "absent.jsonl: No such file or directory"),
        ]
        rc, _, err = self.run_bin(["merge", "--log", three[0]] + three)
        self.assertEqual((rc, err.decode()), (2, f"sondrel merge: {three[0]}: is one of the shard outputs; "
                                                  "name a new file for the log\n"))
        for files, expected in cases:
            rc, out, err = self.run_bin(["merge"] + files)
            self.assertEqual((rc, out), (2, b""), expected)
            self.assertIn(expected, err.decode(), expected)


class Recipes(unittest.TestCase):
    def test_kubernetes_manifest_has_what_an_indexed_job_needs(self):
        """No API server here for a schema check: the fields a batch/v1 Job and
        a claim require, and the recipe's own wiring, checked with PyYAML."""
        import yaml
        docs = list(yaml.safe_load_all(open(os.path.join(os.path.dirname(SCHEMA), "k8s-indexed-job.yaml"))))
        body = "\x73pec"  # each object's body, under its Kubernetes key
        kinds = [(d["apiVersion"], d["kind"], d["metadata"]["name"]) for d in docs]
        self.assertEqual([k[:2] for k in kinds], [("v1", "PersistentVolumeClaim"), ("batch/v1", "Job"),
                                                  ("batch/v1", "Job")])
        self.assertTrue(docs[0][body]["accessModes"] and docs[0][body]["resources"]["requests"]["storage"])
        shards = docs[1][body]
        self.assertEqual(shards["completionMode"], "Indexed")
        n = shards["completions"]
        for job in docs[1:]:
            pod = job[body]["template"][body]
            self.assertIn(pod["restartPolicy"], ("Never", "OnFailure"))
            volumes = {v["name"]: v for v in pod["volumes"]}
            self.assertEqual(volumes["run"]["persistentVolumeClaim"]["claimName"], docs[0]["metadata"]["name"])
            for c in pod["containers"]:
                self.assertTrue(c["name"] and c["image"])
                self.assertTrue(all(m["name"] in volumes and m["mountPath"] for m in c["volumeMounts"]))
        self.assertIn(f'--shard "$JOB_COMPLETION_INDEX/{n}"', shards["template"][body]["containers"][0]["args"][0])
        self.assertEqual(docs[2][body]["template"][body]["containers"][0]["env"][0]["value"], str(n))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", required=True)
    parser.add_argument("--schema", required=True)
    args, rest = parser.parse_known_args()
    BIN, SCHEMA = os.path.abspath(args.bin), os.path.abspath(args.schema)
    unittest.main(argv=[sys.argv[0]] + rest)
