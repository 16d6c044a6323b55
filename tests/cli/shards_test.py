#!/usr/bin/python3
"""Shards and their merge: N = 1, 3 and 7 shards run through GNU parallel over
a generated tree merge into the text log and JSON Lines of a single run, byte
for byte; a shard killed midway and restarted with its result cache gives the
same merge; and merge refuses, naming the file, every set of shard outputs that
is not one whole run.

Usage: shards_test.py --bin SONDREL --schema docs/sondrel-jsonl.schema.json
"""
import json, os, re, signal, sqlite3, subprocess, tempfile, time, unittest

import scripting_test as common

START = re.compile(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d")


def make_tree(root):
    """Folders of uneven sizes (one larger than a seventh of the tree), names
    that sort differently by case, one name that is not UTF-8."""
    sizes = [3, 1, 40, 7, 12, 2, 25, 5, 9, 1, 16, 6, 30, 4, 11, 8]
    for f, size in enumerate(sizes):
        for i in range(size):
            name = b"%s%02d/t%03d%s.mp3" % (b"Ab"[f % 2:f % 2 + 1], f, i, b"\xe9" if (f, i) == (3, 2) else b"")
            # A tag that claims more than the file holds, or plain junk.
            common.write(os.path.join(root, name), b"ID3\x03\x00\x00\x00\x00\x00\x05abcde" if i % 3 else b"junk" * (i + f + 1))
    return sum(sizes)


class Shards(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="sondrel-shards-")
        self.addCleanup(self.tmp.cleanup)
        self.work, self.lib = self.tmp.name, os.path.join(self.tmp.name, "lib")
        self.total = make_tree(os.fsencode(self.lib))

    def run_bin(self, args):
        return common.run(self.work, args)

    def path(self, name):
        return os.path.join(self.work, name)

    def shards(self, n):
        """Runs shards 0..n-1 through GNU parallel (status 1, problems found, is success); their outputs."""
        outs = [self.path(f"s{n}-{k}.jsonl") for k in range(n)]
        cmd = f"{common.BIN} --shard {{}}/{n} --format jsonl -q {self.lib} > {self.path(f's{n}-')}{{}}.jsonl; [ $? -le 1 ]"
        p = subprocess.run(["parallel", "-j2", cmd, ":::"] + [str(k) for k in range(n)], env=common.env_for(self.work),
                           capture_output=True, timeout=600)
        self.assertEqual(p.returncode, 0, p.stderr)
        return outs

    def merge(self, files, fmt="text"):
        out = self.path("merged." + fmt)
        rc, _, err = self.run_bin(["merge", "--format", fmt, "--log", out] + files)
        return rc, common.slurp(out), err

    def test_merged_shards_equal_one_run(self):
        rc, _, err = self.run_bin(["--log", self.path("single.txt"), self.lib])
        self.assertEqual(rc, 1, err)
        single_text = common.slurp(self.path("single.txt"))
        _, single_jsonl, _ = self.run_bin(["--format", "jsonl", self.lib])
        for n in (1, 3, 7):
            outs = self.shards(n)
            counts = []
            for k, out in enumerate(outs):
                recs = common.records(common.slurp(out))
                self.assertEqual(recs[0]["data"]["shard"], {"index": k, "count": n})
                counts.append(len(recs) - 2)
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
            for i in range(1000):
                common.write(os.path.join(big, "f%d/n%03d.mp3" % (f, i)), noise[i : i + 4096])
        self.lib = big
        # Results of files changed in the last seconds before a scan are not
        # kept (their time stamps cannot be trusted yet): let the tree settle.
        time.sleep(3.5)
        outs = [self.path(f"k{k}.jsonl") for k in range(3)]
        cache = self.path("k.sqlite")
        for k in (0, 2):
            self.run_bin(["--shard", f"{k}/3", "--format", "jsonl", "--cache-file", cache, "--log", outs[k], big])
        stored = lambda: sqlite3.connect(cache).execute("SELECT count(*) FROM results").fetchone()[0]
        before, kept = stored(), 0
        for kill in (True, False):
            with open(outs[1], "wb") as out:
                p = subprocess.Popen([common.BIN, "--shard", "1/3", "--format", "jsonl", "-q", "-j1", "--cache-file",
                                      cache, big], stdout=out, env=common.env_for(self.work))
            if kill:
                deadline = time.time() + 120
                while time.time() < deadline and p.poll() is None and common.slurp(outs[1]).count(b"\n") <= 600:
                    time.sleep(0.005)
                p.send_signal(signal.SIGKILL)
                p.wait()
                kept = stored()
                self.assertNotIn(b'"type":"summary"', common.slurp(outs[1]), "the shard was killed midway")
                rc, _, err = self.run_bin(["merge"] + outs)
                self.assertEqual(rc, 2)
                self.assertIn(os.fsencode(outs[1]) + b": truncated", err)
            else:
                self.assertEqual(p.wait(), 1)
        self.assertGreater(kept, before, "finished files were in the cache before the restart")
        rc, merged, _ = self.merge(outs)
        self.assertEqual(rc, 1)
        self.run_bin(["--log", self.path("single.txt"), big])
        single = common.slurp(self.path("single.txt"))
        self.assertEqual(START.sub(b"", merged, count=1), START.sub(b"", single, count=1))

    def test_merge_refuses_what_is_not_one_run(self):
        three, seven, other, plain = self.shards(3), self.shards(7), self.path("other.jsonl"), self.path("plain.jsonl")
        self.run_bin(["--shard", "2/3", "--format", "jsonl", "--privacy", "--log", other, self.lib])
        self.run_bin(["--format", "jsonl", "--log", plain, self.lib])
        data = common.slurp(three[2])
        for name, content in (("cut", data[:-3]), ("nosummary", data[: data.rstrip(b"\n").rfind(b"\n") + 1]),
                              ("version", data.replace(b'"version":"', b'"version":"0.', 1))):
            common.write(self.path(name + ".jsonl"), content)
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
        docs = list(yaml.safe_load_all(open(os.path.join(os.path.dirname(common.SCHEMA), "k8s-indexed-job.yaml"))))
        body = "\x73pec"  # each object's body, under its Kubernetes key
        self.assertEqual([(d["apiVersion"], d["kind"]) for d in docs],
                         [("v1", "PersistentVolumeClaim"), ("batch/v1", "Job"), ("batch/v1", "Job")])
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
    common.main()
