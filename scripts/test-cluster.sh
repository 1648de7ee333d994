#!/usr/bin/env bash
# Runs the cluster recipes of docs/pipeline.md ("A library that outgrows one machine") for real
# and checks that they make what a plain library run makes.
#
#   scripts/test-cluster.sh [LIBRARY]
#
# LIBRARY defaults to a copy of tests/data/mocap with one take cut short beside them, so that every
# recipe also meets a failed take (its take file comes back, the report waits for it and lists it).
# LIBRARY's take names must be unique, as the recipes require (the plain run would rename takes
# that share a name, the recipes would not).
#
# 1. A plain run, scripts/convert-library.sh LIBRARY -o DIR -j 2, gives the expected files.
# 2. GNU parallel with a shared filesystem: the page's command lines with hosts.txt "2/:" (two
#    processes on this machine).
# 3. GNU parallel without one: the page's command lines run from a home folder of their own
#    holding mocap/library (a copy of LIBRARY) and hosts.txt, whose one host is this machine
#    reached through a stand-in for ssh (it runs the command in another home folder); parallel's
#    copies there and back (rsync), its working folders and their removal are real.
# 4. Slurm: a one-node cluster started here (munged, slurmctld and slurmd as background
#    processes, configuration, key, socket, state and logs in the temporary folder, on free ports
#    of 127.0.0.1; no cgroups: proctrack/linuxproc, task/none; no accounting database), then the
#    page's takes list, its two batch scripts and its submit lines, waited for (4 minutes at most).
# The command lines are read from the page itself (its fenced blocks, with /shared/library,
# /shared/knrexport, /shared/converted, /shared/jobs and ~/knrexport replaced by this run's
# folders), so the page cannot drift from what is tested.
#
# "The same files": the same file names (hidden ones, the converter's own bookkeeping such as the
# links of renamed takes, left out); every .actor.zyra and .actor.wgmp byte for byte; the
# rest equal once what depends on the run's folders and clock is set aside: paths under the
# library and the output folder (a take file's "source", a scene's "BVHFile" and "InitDir", the
# report's folder line) compare as LIB/... and OUT/..., the home folder (a scene's default
# "InitDir") as HOME, the converter's temporary file of a conditioned take ("BVHFile",
# knrconvert-<process id>-...) without its process id; a take file's "seconds" (each phase's wall
# time) is left out and the report's "N.NN s" times blanked. The same takes must fail in every
# run (the job logs and Slurm's task states against the plain run's FAILED lines).
#
# Needs root (the Slurm daemons run the jobs as their owner); installs what is missing of
# parallel, rsync, slurmctld, slurmd, slurm-client, munge and jq from Debian. The converter:
# KNRCONVERT, else the pipeline build (scripts/setup.sh pipeline, built when missing). Daemons
# are stopped and the temporary folder removed at the end, on failure too (KEEP_CLUSTER_TMP=1
# keeps the folder of a failed run).
# Exit status: 0 all the same, 1 a difference or a run that failed, 2 bad usage.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
name="${0##*/}"

fail() {
  echo "$name: $*" >&2
  exit 1
}

case "${1:-}" in
  -h | --help)
    sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'
    exit 0
    ;;
  -?*) echo "$name: unknown option $1" >&2; exit 2 ;;
esac
[ $# -le 1 ] || { echo "$name: one library folder at a time" >&2; exit 2; }
library="${1:-}"
if [ -n "$library" ]; then
  [ -d "$library" ] || { echo "$name: \"$library\" is not a folder" >&2; exit 2; }
  library="$(cd "$library" && pwd -P)"
fi
[ "$(id -u)" -eq 0 ] || { echo "$name: needs root (it starts Slurm's daemons)" >&2; exit 2; }

missing=()
for package in parallel rsync slurmctld slurmd slurm-client munge jq; do
  dpkg-query -W -f='${Status}' "$package" 2> /dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing packages: ${missing[*]}"
  # Another apt-get may hold the lock for a while on a shared machine: wait for it.
  apt-get -o DPkg::Lock::Timeout=600 update -qq > /dev/null
  # The packages' own services (munge, slurmctld, slurmd) are not started: this script runs its
  # own daemons. Where nothing says so already, a policy-rc.d says so for the install.
  policy=/usr/sbin/policy-rc.d
  made_policy=""
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' > "$policy" && chmod 755 "$policy" && made_policy=1
  fi
  installed=0
  DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -qq \
    --no-install-recommends "${missing[@]}" > /dev/null || installed=$?
  [ -z "$made_policy" ] || rm -f "$policy"
  [ "$installed" -eq 0 ] || fail "could not install ${missing[*]}"
fi

converter="${KNRCONVERT:-}"
if [ -z "$converter" ]; then
  "$root/scripts/setup.sh" pipeline
  converter="$root/build-pipeline/bin/knrconvert"
fi
command -v "$converter" > /dev/null || fail "cannot run the converter \"$converter\""
case "$converter" in
  */*) converter="$(cd "$(dirname "$converter")" && pwd)/${converter##*/}" ;;
esac
export KNRCONVERT="$converter"

tmp="$(mktemp -d "${TMPDIR:-/tmp}/test-cluster.XXXXXX")"
# munged wants every folder above its socket open to all (execute permission).
chmod 755 "$tmp"
pids=()
cluster_up=""
cleanup() {
  local status=$? pid
  # Jobs still on the cluster (an interrupted run) are ended before the daemons that run them.
  if [ -n "$cluster_up" ]; then
    scancel --quiet --partition=knrtest 2> /dev/null || true
    for _ in 1 2 3 4 5; do [ -z "$(squeue -h -o %i 2> /dev/null)" ] && break; sleep 1; done
  fi
  for pid in "${pids[@]}"; do kill "$pid" 2> /dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2> /dev/null || true; done
  if [ "$status" -ne 0 ] && [ "${KEEP_CLUSTER_TMP:-}" = 1 ]; then
    echo "$name: logs and outputs kept in $tmp" >&2
  else
    rm -rf "$tmp"
  fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

if [ -z "$library" ]; then
  library="$tmp/library"
  cp -R "$root/tests/data/mocap" "$library"
  printf 'HIERARCHY\nROOT Hips\n{\n  OFFSET 0 0 0\n' > "$library/cut_short.bvh"
fi

# The N-th fenced block of the page's section "### TITLE", with the page's /shared folders
# replaced by this run's.
doc_block() {
  local block
  block="$(awk -v title="### $1" -v want="$2" '
    /^```/ { fence = !fence; if (fence && on) n++; next }
    !fence && /^#/ { on = ($0 == title); next }
    on && fence && n == want { print }' "$root/docs/pipeline.md")"
  [ -n "$block" ] || fail "docs/pipeline.md has no block $2 under \"### $1\""
  block="${block//\/shared\/knrexport\/build-pipeline\/bin\/knrconvert/$converter}"
  block="${block//\/shared\/knrexport/$root}"
  block="${block//\/shared\/library/$library}"
  block="${block//\/shared\/converted/$3/converted}"
  block="${block//\/shared\/jobs/$3/jobs}"
  block="${block//\~\/knrexport\/build-pipeline\/bin\/knrconvert/$converter}"
  block="${block//\~\/knrexport/$root}"
  [[ "$block" != */shared/* ]] ||
    fail "a block of docs/pipeline.md names a /shared path this test does not know"
  printf '%s\n' "$block"
}

start=$SECONDS
echo "== plain library run"
mkdir -p "$tmp/plain"
plain_status=0
"$root/scripts/convert-library.sh" "$library" -o "$tmp/plain/converted" -j 2 \
  > "$tmp/plain/out.txt" 2>&1 || plain_status=$?
[ "$plain_status" -le 1 ] || { cat "$tmp/plain/out.txt" >&2; fail "the plain library run failed"; }
[ -f "$tmp/plain/converted/report.html" ] ||
  { cat "$tmp/plain/out.txt" >&2; fail "the plain run made no report"; }
takes=$(find "$library" -xtype f -iname '?*.bvh' | wc -l)
failed=$(grep -c ': FAILED: ' "$tmp/plain/out.txt" || true)
echo "$takes takes, $failed failed ($((SECONDS - start)) s)"

# Where each run read its takes and wrote its files, as extended regular expressions (run ->
# pattern, one a line for the output folders): paths under them are compared as LIB/... and
# OUT/..., and the home folder, a scene's default folder, as HOME.
declare -A lib_at=() out_at=() home_at=()
# shellcheck disable=SC2001  # one character class, escaped
pattern() { sed 's/[][\.*^$+?(){}|#]/\\&/g' <<< "$1"; }
for run in plain parallel slurm; do
  lib_at[$run]="$(pattern "$library")"
  out_at[$run]="$(pattern "$tmp/$run/converted")"
  home_at[$run]="$(pattern "$HOME")"
done
# A file of RUN as compared (see the header).
normalised() {
  local paths=() out
  while IFS= read -r out; do paths+=(-e "s#$out([/<])#OUT\1#g"); done <<< "${out_at[$1]}"
  paths+=(-e "s#${lib_at[$1]}/#LIB/#g")
  case "$2" in
    *.json) sed -E "${paths[@]}" "$2" | jq -S 'del(.seconds)' ;;
    *.zyra) sed -E "${paths[@]}" -e "s#\"${home_at[$1]}\"#\"HOME\"#g" \
              -e 's/knrconvert-[0-9]+-/knrconvert-PID-/g' "$2" ;;
    *.html) sed -E "${paths[@]}" -e 's/[0-9]+\.[0-9]{2} s/T s/g' "$2" ;;
  esac
}
# The files of a folder that are compared, in name order.
listed() {
  (cd "$1" && find . -mindepth 1 -name ".*" -prune -o \( -type f -o -type l \) -print | sort)
}
# Compares the files RUN wrote into DIR with the plain run's.
compare() {
  local run="$1" dir="$2" file files other differ=0
  files="$(listed "$tmp/plain/converted")"
  other="$(listed "$dir")"
  if [ "$files" != "$other" ]; then
    diff <(echo "$files") <(echo "$other") >&2 || true
    fail "$run: not the files of the plain run (< plain, > $run)"
  fi
  while IFS= read -r file; do
    file="${file#./}"
    case "$file" in
      *.json | *.zyra | *.html)
        diff -u --label "plain/$file" --label "$run/$file" \
          <(normalised plain "$tmp/plain/converted/$file") <(normalised "$run" "$dir/$file") >&2 ||
          differ=1 ;;
      *) cmp "$tmp/plain/converted/$file" "$dir/$file" >&2 || differ=1 ;;
    esac
  done <<< "$files"
  [ "$differ" -eq 0 ] || fail "$run: files differ from the plain run's"
  echo "$run: the same files as the plain run ($(wc -l <<< "$files") files)"
}
# Checks a parallel run's job log against the plain run's takes and failures.
check_joblog() {
  local run="$1" log="$2" ran bad
  [ -s "$log" ] || fail "$run: no job log"
  ran=$(awk 'NR > 1' "$log" | wc -l)
  bad=$(awk -F '\t' 'NR > 1 && $7 != 0' "$log" | wc -l)
  if [ "$ran" -ne "$takes" ] || [ "$bad" -ne "$failed" ]; then
    cat "$3" >&2
    fail "$run: $ran takes run, $bad failed (plain run: $takes, $failed)"
  fi
  echo "$run: $ran takes, $bad failed ($((SECONDS - start)) s)"
}

echo "== GNU parallel, shared filesystem"
start=$SECONDS
mkdir -p "$tmp/parallel/converted"
echo "2/:" > "$tmp/parallel/hosts.txt"
doc_block "GNU parallel over SSH" 2 "$tmp/parallel" > "$tmp/parallel/run.sh"
# As typed at a prompt: the report line runs whatever parallel's exit status.
(cd "$tmp/parallel" && bash run.sh > out.txt 2>&1) ||
  { cat "$tmp/parallel/out.txt" >&2; fail "parallel: the report line failed"; }
check_joblog parallel "$tmp/parallel/convert.log" "$tmp/parallel/out.txt"
compare parallel "$tmp/parallel/converted"

echo "== GNU parallel, no shared filesystem"
# The other host is this machine through a stand-in for ssh that drops ssh's options and the
# login and runs the command in a home folder of its own: parallel's copies to and from the
# host (rsync through the stand-in), its working folders there and their removal are real.
start=$SECONDS
remote="$tmp/remote"
mkdir -p "$remote/home" "$remote/mine/mocap"
cp -R "$library" "$remote/mine/mocap/library"
cat > "$remote/ssh" << 'EOF'
#!/bin/bash
# ssh [options] host [--] command ...: runs the command in the host's home folder, here.
while [ $# -gt 0 ]; do
  case "$1" in
    -[bcDEeFIiJLlmOopQRSWw]) shift 2 ;;
    --) shift; break ;;
    -*) shift ;;
    *) shift; [ "${1:-}" != -- ] || shift; break ;;
  esac
done
# As sshd does: HOME and SHELL are the login's (parallel's wrapper on the host runs the job
# with $SHELL), whatever the caller had.
export HOME="$OTHER_HOST_HOME"
SHELL="$(getent passwd "$(id -u)" | cut -d: -f7)"
export SHELL="${SHELL:-/bin/sh}"
cd && exec "$SHELL" -c "$*"
EOF
export OTHER_HOST_HOME="$remote/home"
chmod +x "$remote/ssh"
echo "2/$remote/ssh other-host" > "$remote/mine/hosts.txt"
doc_block "GNU parallel over SSH" 3 "$remote" > "$remote/run.sh"
# Run from the home folder "mine", as the page's ~ means.
(cd "$remote/mine" && HOME="$remote/mine" bash "$remote/run.sh" > "$remote/out.txt" 2>&1) ||
  { cat "$remote/out.txt" >&2; fail "remote: the report line failed"; }
check_joblog remote "$remote/mine/convert.log" "$remote/out.txt"
leftover="$(find "$remote/home/.parallel/tmp" -mindepth 1 -maxdepth 1 2> /dev/null || true)"
[ -z "$leftover" ] || fail "remote: parallel left its working folders on the host: $leftover"
home_at[remote]="$(pattern "$remote/home")"
workdirs="$(pattern "$remote/home/.parallel/tmp")/[^/\"]+"
lib_at[remote]="$workdirs"
out_at[remote]="$(pattern "$remote/mine/mocap/library/converted")"$'\n'"$workdirs/converted"
compare remote "$remote/mine/mocap/library/converted"

echo "== Slurm"
start=$SECONDS
cluster="$tmp/cluster"
mkdir -p "$cluster/munge" "$cluster/state" "$cluster/spool"
chmod 700 "$cluster/munge"
mkdir -m 755 "$cluster/socket"
mungekey --create --keyfile="$cluster/munge/munge.key"
munged --foreground --key-file="$cluster/munge/munge.key" --socket="$cluster/socket/munge" \
  --pid-file="$cluster/munge/munged.pid" --seed-file="$cluster/munge/munged.seed" \
  --log-file="$cluster/munged.log" > "$cluster/munged.out" 2>&1 &
pids+=($!)

# Two free ports of 127.0.0.1 (nothing answers on them).
ports=()
for port in $(seq 16817 16999); do
  (exec 3<> "/dev/tcp/127.0.0.1/$port") 2> /dev/null && continue
  ports+=("$port")
  [ ${#ports[@]} -lt 2 ] || break
done
[ ${#ports[@]} -eq 2 ] || fail "no free port for Slurm between 16817 and 16999"

# The node as slurmd sees it (its name is the short host name), reached on 127.0.0.1 whatever
# the host name resolves to.
node="$(slurmd -C | head -n 1)"
node_name="${node%% *}"
node_name="${node_name#NodeName=}"
export SLURM_CONF="$cluster/slurm.conf"
cat > "$SLURM_CONF" << EOF
ClusterName=knrtest
SlurmctldHost=$node_name(127.0.0.1)
SlurmctldPort=${ports[0]}
SlurmdPort=${ports[1]}
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$cluster/socket/munge
CredType=cred/munge
StateSaveLocation=$cluster/state
SlurmdSpoolDir=$cluster/spool
SlurmctldPidFile=$cluster/slurmctld.pid
SlurmdPidFile=$cluster/slurmd.pid
SlurmctldLogFile=$cluster/slurmctld.log
SlurmdLogFile=$cluster/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
MailProg=/bin/true
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
ReturnToService=2
$node NodeAddr=127.0.0.1 State=UNKNOWN
PartitionName=knrtest Nodes=ALL Default=YES MaxTime=INFINITE State=UP
EOF
slurm_logs() {
  tail -n 20 "$cluster"/*.log "$cluster"/*.out "$tmp"/slurm/jobs/logs/* 2> /dev/null >&2 || true
}

for _ in $(seq 50); do [ -S "$cluster/socket/munge" ] && break; sleep 0.2; done
[ -S "$cluster/socket/munge" ] || { slurm_logs; fail "munged did not start"; }
slurmctld -D -f "$SLURM_CONF" > "$cluster/slurmctld.out" 2>&1 &
pids+=($!)
cluster_up=1
slurmd -D -f "$SLURM_CONF" > "$cluster/slurmd.out" 2>&1 &
pids+=($!)
state=""
for _ in $(seq 60); do
  state="$(sinfo -h -n "$node_name" -o %T 2> /dev/null || true)"
  [ "$state" = idle ] && break
  sleep 1
done
[ "$state" = idle ] || { slurm_logs; fail "the Slurm node did not come up (state \"$state\")"; }
echo "cluster up ($((SECONDS - start)) s)"

jobs="$tmp/slurm/jobs"
mkdir -p "$jobs" "$tmp/slurm/converted"
doc_block "Slurm: a job array, one take per task" 1 "$tmp/slurm" > "$jobs/list.sh"
doc_block "Slurm: a job array, one take per task" 2 "$tmp/slurm" > "$jobs/convert-take.sbatch"
doc_block "Slurm: a job array, one take per task" 3 "$tmp/slurm" > "$jobs/report.sbatch"
doc_block "Slurm: a job array, one take per task" 4 "$tmp/slurm" > "$jobs/submit.sh"
# The submit lines are sourced so that the array's job id ($array) can be read after them.
submitted="$(cd "$jobs" &&
  bash -c 'set -e; source list.sh; source submit.sh; echo "array=$array"' 2>&1)" ||
  { echo "$submitted" >&2; fail "Slurm: the submit lines failed"; }
array="$(sed -n 's/^array=\([0-9]*\)$/\1/p' <<< "$submitted")"
report="$(sed -n 's/^Submitted batch job \([0-9]*\)$/\1/p' <<< "$submitted")"
if [ -z "$array" ] || [ -z "$report" ]; then
  echo "$submitted" >&2
  fail "Slurm: no job ids in the submit lines' output"
fi
for _ in $(seq 240); do
  [ -z "$(squeue -h -o %i)" ] && break
  # A report job whose dependency can no longer be met would wait for ever.
  if [ "$(squeue -h -j "$report" -o %r 2> /dev/null)" = DependencyNeverSatisfied ]; then
    slurm_logs
    fail "Slurm: the report job will never run (its dependency cannot be met)"
  fi
  sleep 1
done
[ -z "$(squeue -h -o %i)" ] ||
  { squeue >&2; slurm_logs; fail "Slurm: the jobs did not end in 240 s"; }
# One line a task, while slurmctld keeps the records of ended jobs (MinJobAge, 300 s).
tasks="$(scontrol -o show job "$array")"
states="$(grep -o 'JobState=[A-Z_]*' <<< "$tasks" | sort | uniq -c)"
ran=$(grep -c 'JobState=' <<< "$tasks" || true)
bad=$(grep -c 'JobState=FAILED' <<< "$tasks" || true)
report_state="$(scontrol -o show job "$report" | grep -o 'JobState=[A-Z_]*')"
if [ "$ran" -ne "$takes" ] || [ "$bad" -ne "$failed" ] ||
  [ "$(grep -vc 'JobState=\(COMPLETED\|FAILED\)' <<< "$states")" -ne 0 ] ||
  [ "$report_state" != JobState=COMPLETED ]; then
  echo "$states" >&2
  slurm_logs
  fail "Slurm: $ran tasks, $bad failed (plain run: $takes, $failed); the report job: $report_state"
fi
echo "Slurm: $ran tasks, $bad failed ($((SECONDS - start)) s)"
compare slurm "$tmp/slurm/converted"
