# shellcheck shell=sh disable=SC2154 # the caller sets $programs
# server.sh: functions for tests beside the simulated changer server. Precondition: $programs is the
# directory of the simulator. docs/simulator.md describes its commands and events.

scratch=$(mktemp -d)
trap 'end_server; rm -rf "$scratch"' EXIT
events=$scratch/events
server=

# start_server: starts the server with the changer A1, which is mounted on /mnt/changer.
start_server() {
    rm -f "$scratch/commands"
    mkfifo "$scratch/commands"
    : >"$events"
    "$programs/carouseld-sim" <"$scratch/commands" >"$events" 2>&1 3>&- &
    server=$!
    exec 3>"$scratch/commands"
    tell add-changer changer=A1 mount=/mnt/changer slots=4 drives=2
    tell start
}

# tell COMMAND...: has the server execute a command.
tell() {
    seen=$(grep -cE '^(ok|error)' "$events" || true)
    echo "$*" >&3
    until [ "$(grep -cE '^(ok|error)' "$events" || true)" -gt "$seen" ]; do
        sleep 0.1
    done
    if tail -n 1 "$events" | grep '^error'; then
        exit 1
    fi
}

# await PATTERN: waits for an event that matches, after those of earlier calls; fails after a minute.
await() {
    for _ in $(seq 600); do
        line=$(grep -nE "^event .*$1" "$events" | cut -d: -f1 | awk -v seen="${last:-0}" '$1 > seen' | head -n 1)
        if [ -n "$line" ]; then
            last=$line
            return
        fi
        sleep 0.1
    done
    echo "waited in vain for: $1" >&2
    tail -n 40 "$events" >&2
    exit 1
}

# end_server: ends the server if it runs.
end_server() {
    if [ -n "$server" ]; then
        exec 3>&-
        wait "$server" || true
        server=
        last=0
    fi
}
