#!/bin/bash
# Checks a library on a Slurm cluster as one job array of N shards and a
# merge job that runs when every shard has ended. Submit from a login node:
#
#   bash slurm-array.sh /shared/music /shared/sondrel-run 16
#
# writes /shared/sondrel-run/sondrel.log (the text log one run would have
# written) and sondrel.jsonl. Both folders must be on storage every node
# sees. Each shard keeps a result cache of its own, so a shard that is
# requeued (a node lost, a preemption) answers the files it had finished
# from the cache instead of checking them again.
#
# Environment: SONDREL (program path, default sondrel), PARTITION, TIME
# (per shard, default 04:00:00), CPUS (per shard, default 4), EXTRA (more
# sondrel options, the same for every shard, e.g. "--verify quick").
set -euo pipefail

MUSIC=${1:?usage: slurm-array.sh MUSIC_FOLDER OUTPUT_FOLDER [SHARDS]}
OUT=${2:?usage: slurm-array.sh MUSIC_FOLDER OUTPUT_FOLDER [SHARDS]}
N=${3:-16}
SONDREL=${SONDREL:-sondrel}
CPUS=${CPUS:-4}
mkdir -p "$OUT"
partition=()
[ -n "${PARTITION:-}" ] && partition=(--partition="$PARTITION")

# %A is the array's job id and %a the task's index, 0..N-1: the index is the
# shard number as it is.
array=$(sbatch --parsable "${partition[@]}" --job-name=sondrel-shard --array="0-$((N - 1))" \
    --cpus-per-task="$CPUS" --time="${TIME:-04:00:00}" --requeue \
    --output="$OUT/slurm-%A_%a.out" \
    --wrap "exec '$SONDREL' --shard \"\$SLURM_ARRAY_TASK_ID/$N\" --format jsonl --quiet \
        --jobs \"\$SLURM_CPUS_PER_TASK\" --cache-file '$OUT/cache-'\"\$SLURM_ARRAY_TASK_ID\"'.sqlite' \
        ${EXTRA:-} '$MUSIC' > '$OUT/shard-'\"\$SLURM_ARRAY_TASK_ID\"'.jsonl'")
array=${array%%;*}

# afterany rather than afterok: a shard that failed is named by the merge
# (missing, truncated) instead of the merge never running. Shards that found
# problems end with status 1, which afterok would also count as failure.
merge=$(sbatch --parsable "${partition[@]}" --job-name=sondrel-merge --dependency="afterany:$array" \
    --time=01:00:00 --output="$OUT/slurm-%j-merge.out" \
    --wrap "'$SONDREL' merge --log '$OUT/sondrel.log' '$OUT'/shard-*.jsonl; \
        '$SONDREL' merge --format jsonl --log '$OUT/sondrel.jsonl' '$OUT'/shard-*.jsonl")
merge=${merge%%;*}
echo "shards: job $array (array 0-$((N - 1))), merge: job $merge"
echo "log: $OUT/sondrel.log when job $merge has ended"
