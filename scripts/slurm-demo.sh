#!/usr/bin/env bash
# Runs docs/slurm-array.sh on a one-node Slurm cluster on this machine
# (Debian's slurm-wlm and munge, installed by hand: the tests do not need
# them) and checks that the merged log equals a single run's.
#
#   scripts/slurm-demo.sh [build-dir] [music-folder] [shards]
#
# Defaults: build/release, a generated tree of 2,000 small files, 4 shards.
# The cluster's configuration and state live in a temporary folder
# (SLURM_CONF); munged, slurmctld and slurmd are started here and stopped at
# the end. Needs root (slurmd runs the jobs as the submitting user).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
bin="$(realpath "$build/cli/sondrel")"
shards="${3:-4}"
for tool in munged slurmctld slurmd sbatch squeue; do
    command -v "$tool" >/dev/null || { echo "$tool is needed: apt-get install -y slurm-wlm munge" >&2; exit 1; }
done
work="$(mktemp -d /tmp/sondrel-slurm.XXXXXX)"
chmod 755 "$work"
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    [ -f "$work/munge/munged.pid" ] && kill "$(cat "$work/munge/munged.pid")" 2>/dev/null || true
    sleep 1
    [ -n "${KEEP:-}" ] || rm -rf "$work"
}
trap cleanup EXIT

music="${2:-}"
if [ -z "$music" ]; then
    music="$work/music"
    python3 - "$music" <<'PY'
import os, sys
root = sys.argv[1]
for f in range(100):
    d = os.path.join(root, "Folder %03d" % f)
    os.makedirs(d)
    for i in range(5 + (f * 7) % 31):
        with open(os.path.join(d, "t%02d.mp3" % i), "wb") as out:
            out.write(b"ID3\x03\x00\x00\x00\x00\x00\x05abcde" if i % 3 else b"junk" * (i + 1))
PY
fi
files=$(find "$music" -name '*.mp3' | wc -l)

host="$(hostname -s)"
mkdir -p "$work/state" "$work/spool" "$work/munge"
chown munge:munge "$work/munge"
cat > "$work/slurm.conf" <<CONF
ClusterName=sondreldemo
SlurmctldHost=$host
SlurmUser=root
AuthType=auth/munge
CredType=cred/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/backfill
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
MpiDefault=none
ReturnToService=2
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
SlurmctldLogFile=$work/slurmctld.log
SlurmdLogFile=$work/slurmd.log
NodeName=$host CPUs=2 State=UNKNOWN
PartitionName=demo Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF="$work/slurm.conf"

runuser -u munge -- munged --socket="$work/munge/munge.socket" --pid-file="$work/munge/munged.pid" \
    --log-file="$work/munge/munged.log" --seed-file="$work/munge/seed"
export MUNGE_SOCKET="$work/munge/munge.socket"
# The daemons find munge's socket through the auth plugin's option.
echo "AuthInfo=socket=$work/munge/munge.socket" >> "$SLURM_CONF"
slurmctld -D -i > "$work/slurmctld.out" 2>&1 & pids+=($!)
slurmd -D > "$work/slurmd.out" 2>&1 & pids+=($!)
for _ in $(seq 60); do sinfo -h -o %T 2>/dev/null | grep -q idle && break; sleep 1; done
sinfo

out="$work/run"
start=$(date +%s.%N)
SONDREL="$bin" CPUS=1 TIME=00:30:00 bash docs/slurm-array.sh "$music" "$out" "$shards"
while [ -n "$(squeue -h)" ]; do sleep 1; done
end=$(date +%s.%N)
ls "$out"

"$bin" --log "$work/single.log" "$music" || true
"$bin" --format jsonl --log "$work/single.jsonl" "$music" || true
strip() { sed '1s/[0-9T:-]\{19\}$//; 1s/"start":"[^"]*"//' "$1"; }
same=identical
cmp <(strip "$out/sondrel.log") <(strip "$work/single.log") || same=DIFFERENT
cmp <(strip "$out/sondrel.jsonl") <(strip "$work/single.jsonl") || same=DIFFERENT
echo "slurm: $shards shards over $files files, submit to merged log $(echo "$end - $start" | bc) s;" \
    "merged text log and JSON Lines $same to a single run's (apart from the start time)"
[ "$same" = identical ]
