#!/usr/bin/env bash
# usage: slurm.sh COMMAND EXAMPLES WORK
# Compares an array job on a cluster of one node, whose tasks are killed, with a single run.
set -euo pipefail
command=$1 examples=$2 work=$3
PATH=$PATH:/usr/sbin
command -v slurmctld > /dev/null && command -v slurmd > /dev/null || exit 77

rm -rf "$work"
mkdir -p "$work"/{state,spool}
cd "$work"
port=$((20000 + RANDOM % 20000))
cat > slurm.conf <<END
ClusterName=one
SlurmctldHost=$(hostname -s)(127.0.0.1)
SlurmUser=$(id -un)
SlurmdUser=$(id -un)
AuthType=auth/none
CredType=cred/none
SlurmctldPort=$port
SlurmdPort=$((port + 1))
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
ProctrackType=proctrack/pgid
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=batch_sched_delay=0,sched_min_interval=0
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
KillWait=1
NodeName=$(hostname -s) NodeAddr=127.0.0.1 CPUs=2 RealMemory=1000
PartitionName=all Nodes=ALL Default=YES State=UP
END
export SLURM_CONF=$work/slurm.conf
slurmctld -D > slurmctld.log 2>&1 &
daemons=$!
slurmd -D > slurmd.log 2>&1 &
daemons+=" $!"
trap 'scancel --me 2> /dev/null || true; kill -9 $daemons 2> /dev/null || true' EXIT
isIdle() { timeout 2 sinfo -h -o %t 2> /dev/null | grep -q idle; }
for ((i = 0; i < 20; ++i)); do
    isIdle && break
    sleep 0.5
done
isIdle || { echo "slurm.sh: no cluster can be started here, skipped"; exit 77; }

awk 'BEGIN {
    print "customer,destination,seconds,price";
    for (i = 0; i < 20000; ++i)
        printf "\"Smith, %d\",%s,%d,\n", i, i % 50 ? 49150 + i : 0, i * 7919 % 600;
}' > calls.csv
{ cat "$examples/rate.ks"; echo 'Long i = 0; for (i = 0; i < 20000; i = i + 1) {}'; } > slow.ks
"$command" run slow.ks --records calls.csv --header --output single.csv --rejects single.txt

# On the first attempt at a part the command is killed as soon as it begins to write.
cat > mortal <<'END'
#!/usr/bin/env bash
task=$SLURM_ARRAY_TASK_ID
[ ! -e "killed-$task" ] || exec "$COMMAND" "$@"
"$COMMAND" "$@" &
worker=$!
shopt -s nullglob
while kill -0 $worker 2> /dev/null; do
    for file in rated/.part-000000"$task"-of-*; do break 2; done
done
kill -9 $worker && touch "killed-$task"
wait $worker
END
chmod +x mortal
export COMMAND=$command KESTREL=$work/mortal
submit() {
    sbatch -Q --array=1-4 "$examples/slurm.sh" slow.ks calls.csv rated --header > submitted
    for ((i = 0; i < 100; ++i)); do
        [ -n "$(squeue -h)" ] || return 0
        sleep 0.2
    done
    return 1
}
submit
test "$(find . -name 'killed-*' | wc -l)" -eq 4
test -z "$(find rated -name 'manifest-*')"
submit
cat rated/part-* | cmp - single.csv
cat rated/rejects-* | cmp - single.txt
test "$(find rated -type f | wc -l)" -eq 12
