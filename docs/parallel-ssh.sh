#!/bin/bash
# Checks a library from several machines with GNU parallel over ssh: one
# shard per host slot, all reading the same shared storage, then one merge.
#
#   bash parallel-ssh.sh /mnt/archive/music /mnt/archive/sondrel-run 8 host1 host2 host3
#
# MUSIC and OUT must have the same path on every host (an NFS or SMB mount)
# and sondrel must be installed on each. Each host runs one shard at a time
# (-j1 per host; sondrel uses the host's processors itself). A shard that
# failed is run again by --retries; its result cache lets it skip the files
# it had finished. The merge runs here and names any shard that is missing
# or cut short.
set -euo pipefail

MUSIC=${1:?usage: parallel-ssh.sh MUSIC OUT SHARDS HOST...}
OUT=${2:?usage: parallel-ssh.sh MUSIC OUT SHARDS HOST...}
N=${3:?usage: parallel-ssh.sh MUSIC OUT SHARDS HOST...}
shift 3
[ $# -gt 0 ] || { echo "name at least one host" >&2; exit 2; }
SONDREL=${SONDREL:-sondrel}
mkdir -p "$OUT"

logins=()
for host in "$@"; do logins+=(--sshlogin "1/$host"); done

# {} is the shard index. Exit status 1 means "problems found", not failure,
# so only 2 and above make parallel retry the shard.
seq 0 $((N - 1)) | parallel "${logins[@]}" --retries 3 --joblog "$OUT/parallel.joblog" \
    "$SONDREL --shard {}/$N --format jsonl --quiet --cache-file '$OUT/cache-{}.sqlite' ${EXTRA:-} \
        '$MUSIC' > '$OUT/shard-{}.jsonl'; rc=\$?; [ \$rc -le 1 ]" || true

"$SONDREL" merge --format jsonl --log "$OUT/sondrel.jsonl" "$OUT"/shard-*.jsonl || [ $? -eq 1 ]
"$SONDREL" merge --log "$OUT/sondrel.log" "$OUT"/shard-*.jsonl
