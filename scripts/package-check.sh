#!/usr/bin/env bash
# Builds the Debian packages from a copy of the source tree (no build output
# lands in the repository), checks them with lintian, installs them with
# dpkg, and tries what they installed: the command line program on the sample
# library, the man pages, the bash completion, the desktop entry and the
# AppStream metainfo. The packages are removed again at the end unless they
# were installed before.
# Usage: scripts/package-check.sh   (SONDREL_PACKAGE_DIR: where to build, default /tmp/sondrel-package)
set -euo pipefail
cd "$(dirname "$0")/.."
repo="$PWD"
# A fixed folder lets ccache reuse the previous run's objects.
work="${SONDREL_PACKAGE_DIR:-${TMPDIR:-/tmp}/sondrel-package}"
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

step() { printf '\n== %s\n' "$*"; }
fail() {
    echo "package-check: $*" >&2
    exit 1
}

step "copying the source tree to $work/src"
rm -rf "$work"
mkdir -p "$work/src"
git ls-files -z --cached --others --exclude-standard |
    while IFS= read -r -d '' f; do [ -e "$f" ] && printf '%s\0' "$f"; done |
    (cd "$repo" && xargs -0 cp --parents -t "$work/src")

step "building the packages"
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
fi
(cd "$work/src" && dpkg-buildpackage -us -uc -j"$(nproc)") >"$work/build.log" 2>&1 ||
    { tail -n 40 "$work/build.log"; fail "dpkg-buildpackage failed (full output: $work/build.log)"; }
changes=("$work"/sondrel_*.changes)
[ -f "${changes[0]}" ] || fail "no .changes file was written"

step "lintian"
# Errors and warnings fail the check; informational and pedantic tags are
# shown (the README says why the remaining ones stay). The packages are not
# uploaded to the Debian archive, so there is no bug asking for them that the
# first changelog entry could close.
lintian --fail-on error,warning --display-info --pedantic --suppress-tags initial-upload-closes-no-bugs \
    "${changes[0]}" ||
    fail "lintian reported errors or warnings"

step "installing"
was_installed=()
for p in sondrel sondrel-gui; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' && was_installed+=("$p")
done
remove_packages() {
    [ "${#was_installed[@]}" -eq 0 ] && $SUDO dpkg --purge sondrel-gui sondrel >/dev/null || true
}
trap remove_packages EXIT
# Slim container images tell dpkg to leave out man pages; ours must land.
$SUDO dpkg --path-include='/usr/share/man/man1/sondrel*' -i "$work"/sondrel_*.deb "$work"/sondrel-gui_*.deb
[ "$(command -v sondrel)" = /usr/bin/sondrel ] || fail "sondrel is not /usr/bin/sondrel"
dpkg -s sondrel | grep '^Depends:'
dpkg -s sondrel-gui | grep '^Depends:'

step "the installed sondrel on the sample library"
obj=("$work"/src/obj-*)
samples="$work/samples"
"${obj[0]}/samples/sondrel_samples" "$samples" >/dev/null
rc=0
(cd "$work" && HOME="$work/home" sondrel --quiet --log - "$samples" >"$work/installed.log") || rc=$?
[ "$rc" -eq 1 ] || fail "sondrel on the samples exited with $rc, expected 1 (problems logged)"
head -n 1 "$work/installed.log" | grep -q '^Sondrel Version ' || fail "the log does not start with the version line"
problems=$(grep -c '^    [0-9]\{12\}  ' "$work/installed.log" || true)
[ "$problems" -gt 0 ] || fail "no problem lines in the log"
echo "exit status 1, $problems problem lines"

step "man pages"
man -w sondrel
man -w sondrel-gui
for page in sondrel sondrel-gui; do
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -Tutf8 -Z "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || fail "man $page: $warnings"
done
man -P cat sondrel 2>/dev/null | grep -q 'PROBLEM CODES' || fail "the man page has no problem codes"

step "bash completion"
bash --norc --noprofile -c '
    set -u
    source /usr/share/bash-completion/bash_completion
    _completion_loader sondrel
    ask() {
        COMP_WORDS=("$@"); COMP_CWORD=$(( $# - 1 )); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
        COMPREPLY=()
        "$(complete -p sondrel | sed "s/.*-F \([^ ]*\) .*/\1/")" sondrel "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
        printf "%s " "${COMPREPLY[@]}"
    }
    check() { local want=$1; shift; got=$(ask "$@"); [ "$got" = "$want " ] || { echo "completing \"$*\": got \"$got\", want \"$want\""; exit 1; }; }
    check "--version --verify" sondrel --ver
    check "quick" sondrel --verify q
    check "id3.trailing-nil,flac.block-overflow" sondrel --ignore id3.trailing-nil,flac.block-o
    echo "completions: options, values and codes"
' || fail "bash completion"

step "zsh and fish completions"
zsh -n /usr/share/zsh/vendor-completions/_sondrel || fail "zsh completion: syntax"
got=$(fish -c 'complete -C "sondrel --verify q"' | cut -f1)
[ "$got" = quick ] || fail "fish completion of \"sondrel --verify q\": got \"$got\""
echo "zsh: syntax; fish: values"

step "desktop entry and AppStream metainfo"
desktop-file-validate /usr/share/applications/org.sondrel.Sondrel.desktop
appstreamcli validate --no-net --pedantic /usr/share/metainfo/org.sondrel.Sondrel.metainfo.xml
QT_QPA_PLATFORM=offscreen sondrel-gui --version

echo
echo "package-check: all checks passed"
