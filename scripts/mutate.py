#!/usr/bin/env python3
"""Mutation check: how many small faults in core/ and formats/ do the fast tests catch?

It makes simple mechanical mutants of the C++ sources — a comparison flipped (== / !=), a
boundary shifted by one (< / <=, > / >=, an integer constant + 1), a logError statement
dropped, the operands of a subtraction swapped, an if/while condition negated — and counts
how many of them the fast tests detect.

To stay cheap on a shared machine every mutant is compiled in at once ("mutant schemata"):
a copy of the tree under build/mutation/src is rewritten so that each site reads
    (sondrel_mutant_on(1234) ? mutated : original)
and the number of the active mutant comes from the SONDREL_MUTANT environment variable
(read once). One non-sanitized build (Release, -O1, no GUI, bench or fuzz) in
build/mutation/bin serves every mutant; a mutant then costs one run of the fast tests.
Sites whose rewritten form does not compile (constant expressions, templates, …) are
dropped. A traced baseline run records which sites the tests reach at all; a site never
reached is a survivor without a run.

Fast tests: the example cases (../shared/examples/run.py), then the unit-test binary
without its slow groups (encoder files, corpus, hostile shapes, verification). A failing
test, a crash or a timeout kills the mutant.

Usage:
    python3 scripts/mutate.py --sample 320 --seed 1 --jobs 2   # random sample
    python3 scripts/mutate.py --ids 75,655                      # these mutants only
    python3 scripts/mutate.py                                   # every mutant (hours)
    python3 scripts/mutate.py --list                            # only list the mutants
A killed mutant costs seconds (the first failing test stops the run); a survivor costs
one run of every fast test (half a minute on a busy machine). The first build takes as
long as an ordinary one; later runs rebuild only what changed. Progress goes to
build/mutation/progress.log, the summary to build/mutation/report.txt.
Equivalent mutants (no test can tell them apart) are listed, with the reason, in
scripts/mutation-equivalent.txt and left out of the count.
"""

import argparse
import collections
import hashlib
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FOLDERS = ("core", "formats")
EQUIVALENT_FILE = os.path.join(ROOT, "scripts", "mutation-equivalent.txt")
SLOW_TESTS = "*RealFiles*:*Corpus*:Hostile*:Verify*:ApeFiles*:ScanCancel*:CliCancel*"
CLI_TESTS = "Cli*:ImageValidator.EveryDecoderAcceptsItsOwnImages-CliCancel*"

# ---------------------------------------------------------------------------
# A small C++ tokenizer: enough to find operands, not a parser.

TOKEN_RE = re.compile(
    r"""
    (?P<ws>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<raw>R"(?P<delim>[^(\s]*)\(.*?\)(?P=delim)")
  | (?P<str>(?:u8|u|U|L)?"(?:\\.|[^"\\\n])*")
  | (?P<chr>(?:u8|u|U|L)?'(?:\\.|[^'\\\n])*')
  | (?P<num>(?:0[xX][0-9a-fA-F']+|0[bB][01']+|\d[\d']*(?:\.\d*)?(?:[eE][+-]?\d+)?)[uUlLfF]*)
  | (?P<id>[A-Za-z_]\w*)
  | (?P<op>->\*|<<=|>>=|<=>|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[{}()\[\];,.?:<>=!~+\-*/%&|^#])
  | (?P<other>.)
    """,
    re.S | re.X,
)


class Tok:
    __slots__ = ("kind", "text", "start", "end", "line")

    def __init__(self, kind, text, start, end, line):
        self.kind, self.text, self.start, self.end, self.line = kind, text, start, end, line


def tokenize(src):
    toks = []
    line = 1
    pos = 0
    line_start = True
    while pos < len(src):
        m = TOKEN_RE.match(src, pos)
        kind = m.lastgroup if m.lastgroup != "delim" else "raw"
        text = m.group(0)
        if kind == "op" and text == "#" and line_start:
            # A preprocessor line (with its continuations) is not code to mutate.
            end = pos
            while True:
                nl = src.find("\n", end)
                if nl < 0:
                    end = len(src)
                    break
                if src[nl - 1] == "\\":
                    end = nl + 1
                    continue
                end = nl
                break
            text = src[pos:end]
            line += text.count("\n")
            pos = end
            continue
        if kind not in ("ws", "comment"):
            toks.append(Tok(kind, text, pos, m.end(), line))
            line_start = False
        nl = text.count("\n")
        if nl:
            line += nl
            line_start = True
        pos = m.end()
    return toks


OPEN = {"(": ")", "[": "]", "{": "}"}
CLOSE = {v: k for k, v in OPEN.items()}
CASTS = {"static_cast", "reinterpret_cast", "const_cast", "dynamic_cast"}
KEYWORDS_NOT_OPERANDS = {
    "return", "if", "while", "for", "else", "case", "do", "switch", "const", "auto", "constexpr",
    "static", "co_return", "throw", "new", "delete", "operator", "template", "typename", "using",
    "namespace", "struct", "class", "enum", "default", "goto", "break", "continue", "unsigned",
    "int", "char", "bool", "void", "long", "short", "double", "float", "signed",
}
# Tokens that may stand before an operand of a comparison or a subtraction
# without binding tighter than it (so wrapping the site in parentheses keeps
# the original meaning).
LEFT_STOP = {"(", ",", "&&", "||", "=", "return", "?", ":", "{", ";", "[", "+=", "-=", "|=", "&="}
RIGHT_STOP = {")", ",", "&&", "||", ";", "?", ":", "]", "}"}
RELATIONAL = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}


def match_bracket(toks, i, pairs, step):
    """The index of the bracket matching toks[i], searching in direction `step`."""
    want, depth = pairs[toks[i].text], 0
    j = i
    while 0 <= j < len(toks):
        t = toks[j].text
        if t == toks[i].text:
            depth += 1
        elif t == want:
            depth -= 1
            if depth == 0:
                return j
        j += step
    return None


def match_forward(toks, i):
    return match_bracket(toks, i, OPEN, 1)


def match_backward(toks, i):
    return match_bracket(toks, i, CLOSE, -1)


def angle_back(toks, i):
    """toks[i] is '>' closing a cast's type; return the index of the cast keyword."""
    depth = 0
    for j in range(i, max(i - 40, -1), -1):
        t = toks[j].text
        if t == ">":
            depth += 1
        elif t == "<":
            depth -= 1
            if depth == 0:
                return j - 1 if j > 0 and toks[j - 1].text in CASTS else None
        elif t in (";", "{", "}"):
            return None
    return None


def is_primary(tok):
    return tok.kind in ("num", "str", "chr") or (tok.kind == "id" and tok.text not in KEYWORDS_NOT_OPERANDS)


def operand_forward(toks, j):
    """Index one past a simple operand starting at j, or None."""
    n = len(toks)
    while j < n and toks[j].text in ("!", "*", "~", "-") and toks[j].kind == "op":
        j += 1
    if j >= n:
        return None
    t = toks[j]
    if t.text in CASTS:
        if j + 1 >= n or toks[j + 1].text != "<":
            return None
        depth, k = 0, j + 1
        while k < n:
            if toks[k].text == "<":
                depth += 1
            elif toks[k].text == ">":
                depth -= 1
                if depth == 0:
                    break
            elif toks[k].text in (";", "{", "}"):
                return None
            k += 1
        if k + 1 >= n or toks[k + 1].text != "(":
            return None
        e = match_forward(toks, k + 1)
        if e is None:
            return None
        j = e + 1
    elif t.text == "(":
        e = match_forward(toks, j)
        if e is None:
            return None
        j = e + 1
    elif is_primary(t):
        j += 1
    else:
        return None
    while j < n:
        t = toks[j].text
        if t in (".", "->", "::") and j + 1 < n and toks[j + 1].kind == "id":
            j += 2
        elif t in ("(", "["):
            e = match_forward(toks, j)
            if e is None:
                return None
            j = e + 1
        elif t in ("++", "--"):
            j += 1
        else:
            break
    return j


def operand_backward(toks, i):
    """Index of the first token of a simple operand ending at i, or None."""
    j = i
    while j >= 0:
        t = toks[j]
        if t.text in (")", "]"):
            o = match_backward(toks, j)
            if o is None:
                return None
            j = o
            if j > 0 and toks[j - 1].text == ">" and t.text == ")":
                c = angle_back(toks, j - 1)
                if c is None:
                    return None
                j = c
            elif j > 0 and (is_primary(toks[j - 1]) or toks[j - 1].text in (")", "]")):
                j -= 1
                continue
        elif is_primary(t):
            pass
        else:
            return None
        if j > 1 and toks[j - 1].text in (".", "->", "::"):
            j -= 2
            continue
        if j > 0 and toks[j - 1].text == "::":
            j -= 1
        break
    while j > 0 and toks[j - 1].text in ("!", "*", "~") and (j < 2 or toks[j - 2].text in LEFT_STOP):
        j -= 1
    return j


class Mutant:
    __slots__ = ("id", "path", "line", "kind", "s", "e", "plain", "wrap", "desc", "src_line", "last_line")

    def key(self):
        return "%s | %s | %s" % (self.path, self.desc, " ".join(self.src_line.split()))


def find_mutants(path, src):
    toks = tokenize(src)
    lines = src.split("\n")
    out = []

    def add(kind, s_tok, e_tok, plain, wrap, desc):
        m = Mutant()
        m.path, m.kind = path, kind
        m.s, m.e = toks[s_tok].start, toks[e_tok].end
        m.line, m.last_line = toks[s_tok].line, toks[e_tok].line
        m.plain, m.wrap, m.desc = plain, wrap, desc
        m.src_line = lines[toks[s_tok].line - 1].strip()
        out.append(m)

    def text(a, b):
        return src[toks[a].start:toks[b].end]

    for i, t in enumerate(toks):
        if t.kind != "op":
            # A dropped log statement: `logError(...);`, `theTag->logError(...);`
            if t.kind == "id" and t.text == "logError" and i + 1 < len(toks) and toks[i + 1].text == "(":
                s = i
                if i >= 2 and toks[i - 1].text in ("->", ".") and toks[i - 2].kind == "id":
                    s = i - 2
                if s > 0 and toks[s - 1].text not in (";", "{", "}", ")", "else", ":"):
                    continue
                e = match_forward(toks, i + 1)
                if e is None or e + 1 >= len(toks) or toks[e + 1].text != ";":
                    continue
                add("drop-log", s, e + 1, "{ }", "drop", "drop " + toks[s].text + ("" if s == i else toks[s + 1].text + "logError"))
            elif t.kind == "id" and t.text in ("if", "while") and i + 1 < len(toks) and toks[i + 1].text == "(":
                if i > 0 and toks[i - 1].text in ("constexpr",):
                    continue
                e = match_forward(toks, i + 1)
                if e is None or e == i + 2:
                    continue
                inner = toks[i + 2:e]
                depth, bad = 0, False
                for k in inner:
                    if k.text in ("(", "[", "{"):
                        depth += 1
                    elif k.text in (")", "]", "}"):
                        depth -= 1
                    elif depth == 0 and k.text in (";", "=", "auto", "const"):
                        bad = True
                    elif k.text == "[" or k.text == "->" and False:
                        pass
                if bad or any(k.text in ("[&]", "{") for k in inner):
                    continue
                c = text(i + 2, e - 1)
                add("negate", i + 2, e - 1, "!(%s)" % c, "bool", "negate %s condition" % t.text)
            elif t.kind == "num" and i > 0 and i + 1 < len(toks):
                prev, nxt = toks[i - 1].text, toks[i + 1].text
                if prev in RELATIONAL or prev in ("+", "-"):
                    if nxt in RIGHT_STOP or nxt in RELATIONAL or nxt in ("+", "-"):
                        if "." in t.text or "e" in t.text.lower() and not t.text.lower().startswith("0x"):
                            continue
                        if i >= 2 and prev == "-" and toks[i - 2].kind == "op" and toks[i - 2].text not in (")", "]"):
                            continue  # a negative constant
                        add("literal+1", i, i, "(%s + 1)" % t.text, "value", "%s -> %s+1" % (t.text, t.text))
            continue
        if t.text in RELATIONAL:
            ls = operand_backward(toks, i - 1) if i > 0 else None
            re_ = operand_forward(toks, i + 1)
            if ls is None or re_ is None or re_ > len(toks) - 1:
                continue
            if ls == 0 or toks[ls - 1].text not in LEFT_STOP:
                continue
            if toks[re_].text not in RIGHT_STOP:
                continue
            if t.text in ("<", ">") and (toks[i + 1].text in CASTS or toks[ls].text in CASTS and ls == i - 1):
                continue
            plain = text(ls, i - 1) + " " + RELATIONAL[t.text] + " " + text(i + 1, re_ - 1)
            add("relational", ls, re_ - 1, plain, "bool", "%s -> %s" % (text(ls, re_ - 1), plain))
        elif t.text == "-" and i > 0:
            if toks[i - 1].kind == "op" and toks[i - 1].text not in (")", "]", "++", "--"):
                continue  # unary minus
            ls = operand_backward(toks, i - 1)
            re_ = operand_forward(toks, i + 1)
            if ls is None or re_ is None or ls == 0 or re_ >= len(toks):
                continue
            if toks[ls - 1].text not in LEFT_STOP | set(RELATIONAL):
                continue
            if toks[re_].text not in RIGHT_STOP | set(RELATIONAL) | {"+", "-"}:
                continue
            a, b = text(ls, i - 1), text(i + 1, re_ - 1)
            if a == b:
                continue
            add("swap-sub", ls, re_ - 1, "%s - %s" % (b, a), "value", "%s - %s -> %s - %s" % (a, b, b, a))
    # Keep properly nested sites only.
    out.sort(key=lambda m: (m.s, -m.e))
    kept, stack = [], []
    for m in out:
        while stack and stack[-1].e <= m.s:
            stack.pop()
        if stack and m.e > stack[-1].e:
            continue
        if any(k.s == m.s and k.e == m.e for k in stack):
            continue
        kept.append(m)
        stack.append(m)
    # The same mutation twice on one line: number the later ones.
    seen = collections.Counter()
    for m in kept:
        seen[(m.line, m.desc)] += 1
        if seen[(m.line, m.desc)] > 1:
            m.desc += " (%d. on the line)" % seen[(m.line, m.desc)]
    return kept


def render(src, mutants, s, e):
    """Source text s..e with every (nested) site rewritten in schema form."""
    parts, pos, i = [], s, 0
    top = []
    for m in mutants:
        if m.s >= s and m.e <= e and not (m.s == s and m.e == e):
            if top and m.s < top[-1].e:
                continue
            top.append(m)
    for m in top:
        parts.append(src[pos:m.s])
        parts.append(schema(src, mutants, m))
        pos = m.e
    parts.append(src[pos:e])
    return "".join(parts)


def schema(src, mutants, m):
    inner = [k for k in mutants if k is not m and k.s >= m.s and k.e <= m.e]
    orig = render(src, inner, m.s, m.e)
    on = "sondrel_mutant_on(%d)" % m.id
    if m.wrap == "drop":
        return "{ if (!%s) { %s } }" % (on, orig)
    if m.wrap == "bool":
        return "(%s ? bool(%s) : bool(%s))" % (on, m.plain, orig)
    return "(%s ? (%s) : (%s))" % (on, m.plain, orig)


def source_files():
    files = []
    for folder in FOLDERS:
        for dirpath, _, names in os.walk(os.path.join(ROOT, folder)):
            for n in sorted(names):
                if n.endswith(".cpp"):
                    files.append(os.path.relpath(os.path.join(dirpath, n), ROOT))
    return sorted(files)


def load_equivalents():
    """The keys of equivalent mutants, and (path, function name) of functions
    nothing calls: every mutant inside them is equivalent."""
    keys, dead = set(), set()
    if os.path.exists(EQUIVALENT_FILE):
        for line in open(EQUIVALENT_FILE, encoding="utf-8"):
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            parts = [p.strip() for p in line.split("|")]
            if len(parts) == 3 and parts[1] == "uncalled function":
                dead.add((parts[0], parts[2]))
            else:
                keys.add(" ".join(line.split()))
    return keys, dead


def function_spans(src, name):
    """(first, last) line of each definition of a function called `name`."""
    toks = tokenize(src)
    spans = []
    for i, t in enumerate(toks):
        if t.text != name or i + 1 >= len(toks) or toks[i + 1].text != "(":
            continue
        if i > 0 and toks[i - 1].text in (".", "->", "=", "(", ",", "return"):
            continue
        e = match_forward(toks, i + 1)
        j = e + 1 if e is not None else len(toks)
        while j < len(toks) and toks[j].text not in ("{", ";"):
            j += 1
        if j < len(toks) and toks[j].text == "{":
            end = match_forward(toks, j)
            if end is not None:
                spans.append((t.line, toks[end].line))
    return spans


# ---------------------------------------------------------------------------
# The build.

SWITCH_H = """#pragma once
extern "C" bool sondrel_mutant_on(int id) noexcept;
"""

SWITCH_CPP = """// Generated by scripts/mutate.py: the runtime switch of the mutant schemata.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
namespace {
constexpr int kCount = %d;
std::atomic<unsigned char> hits[kCount + 1];
struct Switch {
    int active = 0;
    const char* trace = nullptr;
    Switch() {
        if (const char* s = std::getenv("SONDREL_MUTANT")) active = std::atoi(s);
        trace = std::getenv("SONDREL_MUTANT_TRACE");
    }
    ~Switch() {
        if (!trace) return;
        std::string out;
        for (int i = 1; i <= kCount; ++i)
            if (hits[i].load(std::memory_order_relaxed)) out += std::to_string(i) + "\\n";
        int fd = ::open(trace, O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (fd >= 0) { if (::write(fd, out.data(), out.size()) < 0) {} ::close(fd); }
    }
};
Switch& state() { static Switch s; return s; }
}  // namespace
extern "C" bool sondrel_mutant_on(int id) noexcept {
    Switch& s = state();
    if (s.trace && id > 0 && id <= kCount) hits[id].store(1, std::memory_order_relaxed);
    return s.active == id;
}
"""


def write_if_changed(path, data):
    if os.path.exists(path):
        with open(path, "rb") as f:
            if f.read() == data:
                return False
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)
    return True


def sync_tree(dest):
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                           capture_output=True, text=True, errors="replace").stdout.split("\n")
    # Sources deleted from the tree since the last run leave the copy too
    # (the build globs its test sources).
    kept = set(files)
    for dirpath, _, names in os.walk(dest):
        for n in names:
            rel = os.path.relpath(os.path.join(dirpath, n), dest)
            if n.endswith(".cpp") and rel not in kept:
                os.remove(os.path.join(dirpath, n))
    for rel in files:
        if not rel or rel.startswith("build/"):
            continue
        srcp = os.path.join(ROOT, rel)
        if not os.path.isfile(srcp):
            continue
        with open(srcp, "rb") as f:
            data = f.read()
        if rel == "CMakeLists.txt":
            data = data.replace(b"-Werror", b"-Wno-error -w")
            data = data.replace(b"find_package(PkgConfig REQUIRED)",
                                b"add_compile_options(-include ${CMAKE_SOURCE_DIR}/core/MutantSwitch.h)\n"
                                b"find_package(PkgConfig REQUIRED)")
        write_if_changed(os.path.join(dest, rel), data)
    # The worktree's tests look for ../shared next to the source tree.
    shared = shared_dir()
    link = os.path.join(os.path.dirname(dest), "shared")
    if shared and not os.path.exists(link):
        os.symlink(shared, link)


def shared_dir():
    for cand in (os.path.join(ROOT, "..", "shared"), os.path.join(ROOT, "..", "..", "shared")):
        if os.path.exists(os.path.join(cand, "examples", "run.py")):
            return os.path.abspath(cand)
    return None


def write_schemata(dest, by_file, sources, count):
    for rel, src in sources.items():
        ms = by_file.get(rel, [])
        out = render(src, ms, 0, len(src)) if ms else src
        write_if_changed(os.path.join(dest, rel), out.encode("utf-8"))
    write_if_changed(os.path.join(dest, "core", "MutantSwitch.h"), SWITCH_H.encode())
    write_if_changed(os.path.join(dest, "core", "MutantSwitch.cpp"), (SWITCH_CPP % count).encode())


ERR_RE = re.compile(r"^(?:\S*/)?((?:core|formats)/[^:]+\.cpp):(\d+):\d+: error", re.M)


def build(bindir, srcdir, log):
    if not os.path.exists(os.path.join(bindir, "build.ninja")):
        env = dict(os.environ, CMAKE_CXX_COMPILER_LAUNCHER="ccache", CMAKE_C_COMPILER_LAUNCHER="ccache")
        subprocess.run(["cmake", "-S", srcdir, "-B", bindir, "-G", "Ninja", "-DCMAKE_CXX_COMPILER=g++",
                        "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG",
                        "-DSONDREL_BUILD_GUI=OFF", "-DSONDREL_BUILD_BENCH=OFF", "-DSONDREL_BUILD_FUZZ=OFF"],
                       check=True, env=env, stdout=log, stderr=log)
    p = subprocess.run(["cmake", "--build", bindir, "--target", "sondrel_tests", "sondrel", "--", "-k", "0",
                        "-j", str(os.environ.get("MUTATE_BUILD_JOBS", "2"))],
                       capture_output=True, text=True, errors="replace")
    log.write(p.stdout[-20000:] + p.stderr[-20000:])
    log.flush()
    errors = collections.defaultdict(set)
    for m in ERR_RE.finditer(p.stdout + p.stderr):
        errors[m.group(1)].add(int(m.group(2)))
    return p.returncode == 0, errors


# ---------------------------------------------------------------------------
# Running the fast tests.


def run_gtest(bindir, env, flt, timeout, fail_fast):
    """(failed test names, return code); a timeout raises."""
    p = subprocess.run([os.path.join(bindir, "tests", "sondrel_tests"), "--gtest_filter=" + flt, "--gtest_brief=1"]
                       + (["--gtest_fail_fast"] if fail_fast else []),
                       env=env, capture_output=True, text=True, errors="replace", timeout=timeout, cwd=bindir)
    return re.findall(r"^\[  FAILED  \] (\S+)", p.stdout, re.M), p.returncode


def run_examples(bindir, env, timeout):
    run_py = os.path.join(shared_dir(), "examples", "run.py")
    p = subprocess.run([sys.executable, run_py, "--bin", os.path.join(bindir, "cli", "sondrel"), "--timeout", "10"],
                       env=env, capture_output=True, text=True, errors="replace", timeout=timeout)
    return set(re.findall(r"^FAIL (\S+)", p.stdout, re.M)) - BASELINE_EXAMPLE_FAILS


def run_tests(bindir, mutant, timeout, trace=None, full=False):
    """Runs the fast tests, cheapest first, and stops at the first failure
    (unless `full`). Returns (reason it was killed or None, (failed examples,
    failed unit tests, return code))."""
    env = dict(os.environ, SONDREL_MUTANT=str(mutant))
    env.pop("SONDREL_MUTANT_TRACE", None)
    if trace:
        env["SONDREL_MUTANT_TRACE"] = trace
    deadline = time.time() + timeout
    stop_early = not (trace or full)
    ex_fails, ut_fails, rc = set(), [], 0
    try:
        # In-process unit tests first, the command line's end-to-end tests last.
        for stage in ("unit", "examples", "cli"):
            left = max(5.0, deadline - time.time())
            if stage == "examples":
                ex_fails = run_examples(bindir, env, left)
                if ex_fails and stop_early:
                    return "examples: " + " ".join(sorted(ex_fails)[:3]), (ex_fails, [], 0)
                continue
            flt = ("-" + SLOW_TESTS + ":" + CLI_TESTS) if stage == "unit" else CLI_TESTS
            failed, code = run_gtest(bindir, env, flt, left, stop_early)
            ut_fails += failed
            rc = rc or code
            if code and stop_early:
                return "unit tests: " + (" ".join(failed[:3]) or "exit %d" % code), (set(), failed, code)
    except subprocess.TimeoutExpired:
        return "timeout", None
    if (ex_fails or rc) and full:
        return "killed", (ex_fails, ut_fails, rc)
    return None, (ex_fails, ut_fails, rc)


BASELINE_EXAMPLE_FAILS = set()


def main():
    global BASELINE_EXAMPLE_FAILS
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--sample", type=int, default=0, help="check a random sample of N mutants (0: all)")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--timeout", type=float, default=120, help="seconds per mutant before it counts as a hang")
    ap.add_argument("--list", action="store_true", help="list the mutants and stop")
    ap.add_argument("--only", default="", help="only files whose path contains this text")
    ap.add_argument("--ids", default="", help="comma-separated mutant ids to run (after a build)")
    ap.add_argument("--matrix", default="", help="write which example cases and unit tests kill each mutant (JSON);"
                    " slower: every test runs for every mutant")
    ap.add_argument("--jobs", type=int, default=1, help="mutants checked at once")
    ap.add_argument("--dir", default=os.path.join(ROOT, "build", "mutation"))
    args = ap.parse_args()

    srcdir, bindir = os.path.join(args.dir, "src"), os.path.join(args.dir, "bin")
    os.makedirs(args.dir, exist_ok=True)
    log = open(os.path.join(args.dir, "progress.log"), "a")

    def say(msg):
        line = time.strftime("%H:%M:%S ") + msg
        print(line, flush=True)
        log.write(line + "\n")
        log.flush()

    sources, all_mutants = {}, []
    for rel in source_files():
        with open(os.path.join(ROOT, rel), encoding="utf-8") as f:
            sources[rel] = f.read()
        all_mutants.extend(find_mutants(rel, sources[rel]))
    for n, m in enumerate(all_mutants, 1):
        m.id = n
    equivalent, dead = load_equivalents()
    dead_lines = collections.defaultdict(list)
    for path, name in dead:
        if path in sources:
            dead_lines[path] += function_spans(sources[path], name)
    say("%d mutant sites in %d files" % (len(all_mutants), len(sources)))

    # Drop sites that do not compile in schema form, file by file, until the build passes.
    dropped_file = os.path.join(args.dir, "dropped.json")
    # The sites that failed to compile stay valid while the sites and their
    # rewritten forms are the same.
    fingerprint = hashlib.sha1(repr([(m.path, m.s, m.e, m.plain, m.wrap) for m in all_mutants]).encode()
                               + "".join(sources[k] for k in sorted(sources)).encode()).hexdigest()
    dropped = set()
    if os.path.exists(dropped_file):
        saved = json.load(open(dropped_file))
        if saved.get("fingerprint") == fingerprint:
            dropped = set(saved["dropped"])
    live = [m for m in all_mutants if m.id not in dropped]
    if args.list:
        for m in live:
            print("%5d %s:%d %-10s %s" % (m.id, m.path, m.line, m.kind, m.desc))
        return 0
    sync_tree(srcdir)
    for round_ in range(12):
        by_file = collections.defaultdict(list)
        for m in live:
            by_file[m.path].append(m)
        write_schemata(srcdir, by_file, sources, len(all_mutants))
        say("build round %d: %d sites" % (round_ + 1, len(live)))
        ok, errors = build(bindir, srcdir, log)
        if ok:
            break
        if not errors:
            say("build failed outside the mutated sources; see %s" % log.name)
            return 2
        before = len(live)
        for path, lines in errors.items():
            for m in by_file.get(path, []):
                if any(m.line <= ln <= m.last_line for ln in lines):
                    dropped.add(m.id)
            if len([m for m in by_file.get(path, []) if m.id not in dropped]) == len(by_file.get(path, [])):
                # The error is not on a site's line (a template instantiated elsewhere): give up on the file.
                dropped.update(m.id for m in by_file.get(path, []))
        live = [m for m in all_mutants if m.id not in dropped]
        json.dump({"fingerprint": fingerprint, "dropped": sorted(dropped)}, open(dropped_file, "w"))
        say("dropped %d sites that do not compile in schema form" % (before - len(live)))
    else:
        say("build does not converge")
        return 2

    # Baseline with a trace of the sites reached.
    trace = os.path.join(args.dir, "trace.txt")
    if os.path.exists(trace):
        os.remove(trace)
    say("baseline run (traced)")
    why, info = run_tests(bindir, 0, 1800, trace=trace)
    fails, failed, rc = info if info else (set(), [], 0)
    if failed or rc:
        say("the unit tests fail without a mutant: %s (exit %d)" % (" ".join(failed), rc))
        return 2
    BASELINE_EXAMPLE_FAILS = fails
    if fails:
        say("example cases failing without a mutant (ignored): %s" % " ".join(sorted(fails)))
    reached = set()
    if os.path.exists(trace):
        reached = {int(x) for x in open(trace).read().split()}
    say("%d of %d sites reached by the fast tests" % (len(reached & {m.id for m in live}), len(live)))

    def is_equivalent(m):
        if any(a <= m.line <= b for a, b in dead_lines.get(m.path, [])):
            return True
        k = " ".join(m.key().split())
        return k in equivalent or " ".join(("%s | * | %s" % (m.path, m.src_line)).split()) in equivalent

    # The sample is drawn before equivalent mutants are set aside, so arguing
    # one equivalent does not change which mutants a seed draws.
    pool = live
    if args.ids:
        want = {int(x) for x in args.ids.split(",")}
        pool = [m for m in pool if m.id in want]
    elif args.only:
        pool = [m for m in pool if args.only in m.path]
    if args.sample and args.sample < len(pool):
        pool = random.Random(args.seed).sample(pool, args.sample)
        pool.sort(key=lambda m: m.id)
    drawn = len(pool)
    pool = [m for m in pool if not is_equivalent(m)]
    say("checking %d mutants (%d equivalent ones set aside)" % (len(pool), drawn - len(pool)))

    results, matrix = [], {}

    def check(m):
        if m.id not in reached:
            return m, "survived", "not reached", None
        why, info = run_tests(bindir, m.id, args.timeout, full=bool(args.matrix))
        return m, "killed" if why else "survived", why or "", info

    from concurrent.futures import ThreadPoolExecutor
    with ThreadPoolExecutor(max_workers=max(1, args.jobs)) as ex:
        for k, (m, verdict, why, info) in enumerate(ex.map(check, pool), 1):
            if args.matrix and why != "not reached":
                exs, ut = (sorted(info[0]), sorted(info[1])) if isinstance(info, tuple) else ([], [why])
                matrix[m.key()] = {"id": m.id, "path": m.path, "examples": exs, "tests": ut}
                json.dump(matrix, open(args.matrix, "w"), indent=1)
            results.append((m, verdict, why))
            say("[%d/%d] #%d %s %s:%d %s — %s" % (k, len(pool), m.id, verdict, m.path, m.line, m.desc, why))

    per = collections.OrderedDict()
    for m, verdict, _ in results:
        parts = m.path.split("/")
        for key in (parts[0], "/".join(parts[:2]) if parts[0] == "formats" and len(parts) > 2 else None):
            if key:
                c = per.setdefault(key, [0, 0])
                c[0] += verdict == "killed"
                c[1] += 1
    report = ["", "Mutation check: %d mutants%s, seed %d; %d equivalent ones set aside"
              % (len(results), " (sample)" if args.sample else "", args.seed, drawn - len(pool))]
    for key in sorted(per):
        k, t = per[key]
        report.append("  %-22s %4d / %4d killed  (%.1f %%)" % (key, k, t, 100.0 * k / max(t, 1)))
    killed = sum(1 for _, v, _ in results if v == "killed")
    report.append("  %-22s %4d / %4d killed  (%.1f %%)" % ("total", killed, len(results), 100.0 * killed / max(len(results), 1)))
    report.append("Survivors:")
    for m, verdict, why in results:
        if verdict == "survived":
            report.append("  #%d %s:%d %s  [%s]  %s" % (m.id, m.path, m.line, m.desc, why or "tests pass", m.src_line))
            report.append("      key: %s" % m.key())
    text_ = "\n".join(report)
    say(text_)
    with open(os.path.join(args.dir, "report.txt"), "w") as f:
        f.write(text_ + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
