# Sourced by the scripts that strace a rig's daemon from outside the sandbox.
# daemon_of_run RUN: prints the pid of the daemon that the tarvo-emu process RUN started (not
# another rig's), waiting up to 5 s for it to start; fails when none did.
daemon_of_run() {
    for _ in $(seq 100); do
        pid=$(ps -eo pid=,ppid=,comm= | awk -v run="$1" '
            { parent[$1] = $2; name[$1] = $3 }
            END { for (p in name) if (name[p] == "tarvo") {
                      for (q = parent[p]; q > 1; q = parent[q]) if (q == run) { print p; exit } } }')
        [ -n "$pid" ] && { echo "$pid"; return 0; }
        sleep 0.05
    done
    return 1
}
