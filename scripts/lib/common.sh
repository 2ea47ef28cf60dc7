# Sourced by the scripts in scripts/: one job count, one way to install the
# packages a script needs, and one place for the long output (build/logs).
#
#   QV_JOBS=n   parallel compile and test jobs (default: the number of cores)

qv_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
qv_logs=$qv_root/build/logs
mkdir -p "$qv_logs"

# The job count: QV_JOBS, else the number of cores.
qv_jobs() { echo "${QV_JOBS:-$(nproc)}"; }

# qv_packages <list>...: installs the packages of scripts/packages/<list>.txt
# (all lists when none is named); the package manager's output goes to
# build/logs/packages.log. Quiet when everything is installed already.
qv_packages() {
  if ! bash "$qv_root/scripts/install-deps" "$@" >>"$qv_logs/packages.log" 2>&1; then
    echo "packages: installation failed; the end of $qv_logs/packages.log:" >&2
    tail -n 20 "$qv_logs/packages.log" >&2
    return 1
  fi
}

# qv_step <log name> <title> <command>...: runs the command with its output
# in build/logs/<log name>.log and prints one line: the title, then "ok" and
# the seconds taken, or "FAILED" and the end of the log.
qv_step() {
  local name=$1 title=$2; shift 2
  local log=$qv_logs/$name.log started=$SECONDS status=0
  printf '%-52s ' "$title"
  "$@" >"$log" 2>&1 || status=$?
  if [ "$status" -eq 0 ]; then
    echo "ok ($((SECONDS - started)) s)"
  else
    echo "FAILED after $((SECONDS - started)) s (log: ${log#"$qv_root"/})"
    tail -n 40 "$log"
  fi
  return "$status"
}
