#!/usr/bin/env bash
# An array job: sbatch --array=1-64 slurm.sh SCRIPT INPUT DIR [OPTION...]
# Each task works on its part of the file INPUT and leaves the result in DIR; all machines see both.
# A task that is requeued, or submitted again, does nothing when its part is complete.
#SBATCH --job-name=kestrel
#SBATCH --cpus-per-task=1
#SBATCH --mem=256M
#SBATCH --time=01:00:00
#SBATCH --requeue
#SBATCH --open-mode=append
#SBATCH --output=kestrel-%A-%a.log
set -euo pipefail
script=$1 input=$2 out=$3
shift 3
# exec, so that the scheduler's signals reach the command: SIGTERM ends it after a record, and the
# part is made again.
exec "${KESTREL:-kestrel}" run "$script" --records "$input" \
    --part "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" --out "$out" --stats "$@"
