#!/usr/bin/env bash
# Converts an archive by a Slurm of one node, which this script starts and ends: munge, slurmctld, slurmd. For a machine of
# one's own, as root, with Debian's munge, slurmctld, slurmd and slurm-client; no part of the tests that run everywhere.
#
# usage: try_slurm.sh PROGRAM SCRATCH_DIR [SHARDS]
set -euo pipefail

program=$(readlink -f "$1") scratch=$2 shards=${3:-4}
rm -rf "$scratch"
mkdir -p "$scratch"/{state,spool,run}
scratch=$(readlink -f "$scratch")
host=$(hostname -s)
export SLURM_CONF=$scratch/slurm.conf

cat >"$SLURM_CONF" <<CONF
ClusterName=try
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$scratch/run/munge.socket
CredType=cred/munge
StateSaveLocation=$scratch/state
SlurmdSpoolDir=$scratch/spool
SlurmctldPidFile=$scratch/run/slurmctld.pid
SlurmdPidFile=$scratch/run/slurmd.pid
SlurmctldLogFile=$scratch/slurmctld.log
SlurmdLogFile=$scratch/slurmd.log
SlurmctldPort=16817
SlurmdPort=16818
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF

finish() {
    for name in slurmd slurmctld munged; do
        [ ! -s "$scratch/run/$name.pid" ] || kill "$(cat "$scratch/run/$name.pid")" || true
    done
}
trap finish EXIT

dd if=/dev/urandom of="$scratch/munge.key" bs=1024 count=1 status=none
chmod 400 "$scratch/munge.key"
munged --force --key-file="$scratch/munge.key" --socket="$scratch/run/munge.socket" --pid-file="$scratch/run/munged.pid" \
    --log-file="$scratch/munged.log" --seed-file="$scratch/munge.seed"
slurmctld
slurmd

for series in $(seq 12); do
    "$program" phantom "$scratch/archive/$series" --slices 20 --size 128 --seed "$series" -q >/dev/null
done
"$program" batch plan "$scratch/archive" "$scratch/plan" --to "$scratch/out" --shards "$shards" --gzip
job=$(sbatch --parsable --array="1-$shards" --output="$scratch/job-%a.txt" --wrap \
    "$program batch run $scratch/plan --shard \$SLURM_ARRAY_TASK_ID")
for _ in $(seq 120); do
    [ -n "$(squeue --noheader --jobs "$job" 2>/dev/null)" ] || break
    sleep 1
done
cat "$scratch"/job-*.txt
"$program" batch report "$scratch/plan"
"$program" export "$scratch/archive" --all --format nifti --gzip --to "$scratch/at-once" -q >/dev/null
for file in "$scratch"/at-once/*.nii.gz; do cmp "$file" "$scratch/out/$(basename "$file")"; done
echo "the same files as by one export"
