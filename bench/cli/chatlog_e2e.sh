#!/bin/sh
# End to end: `halvenmark-cli chat log` of a stored conversation against printing the same
# bytes. Starts the reference service, signs in, stores N messages on the server, lets one
# `chat log` fetch them into a fresh data folder, then times R runs of each into /dev/null.
#   bench/cli/chatlog_e2e.sh [BUILD_DIR] [MESSAGES] [RUNS]
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$top/build}" && pwd)
count=${2:-20000}
runs=${3:-10}
cli="$build/cli/halvenmark-cli"
printer="$build/bench/cli/chatlog_printbytes"
work=$(mktemp -d)
fifo="$work/listening"
mkfifo "$fifo"
/usr/bin/python3 "$top/tests/service/server.py" </dev/null >"$fifo" 2>/dev/null &
service=$!
trap 'kill $service 2>/dev/null; rm -rf "$work"' EXIT
read -r line <"$fifo"
export HALVENMARK_SERVER="${line#LISTENING }"
export HALVENMARK_HOME="$work/home" HALVENMARK_SECRETS=file LANG=C.UTF-8 TZ=UTC

echo demo-password | "$cli" login --user demo >/dev/null 2>&1
/usr/bin/python3 - "$HALVENMARK_SERVER" "$count" <<'PY'
import http.client, json, sys, urllib.parse
url = urllib.parse.urlsplit(sys.argv[1])
conn = http.client.HTTPConnection(url.hostname, url.port)
asked = ["When is the bus?", "מתי האוטובוס הבא לתל אביב?",
         "Summarise the report I sent yesterday, please."]
answered = ["The next bus leaves at **07:35** from the main stop.",
            "שלום! מצאתי את זמני האוטובוס: קו 12 ב־07:05 וקו 40 ב־07:35.",
            "Three points stand out:\n- costs are down 4%\n- the new site opens in May\n"
            "- see the [report](https://example.com/r)"]
for i in range(int(sys.argv[2])):
    agent = i % 2 == 1
    body = {"user": "demo", "conversation_id": "main", "notify": False,
            "role": "assistant" if agent else "user",
            "text": (answered if agent else asked)[(i // 2) % 3],
            "created_at": 1_700_000_000 + 37 * i}
    if agent:
        body["task_no"] = i // 2 + 1
    conn.request("POST", "/_control/message", json.dumps(body),
                 {"Content-Type": "application/json"})
    response = conn.getresponse()
    response.read()
    if response.status != 200:
        sys.exit(f"seeding failed: {response.status}")
PY
"$cli" chat log >"$work/log.txt"

# Best of R runs: "wall-ms cpu-ms" (CPU: user + system of the child, which a busy machine
# does not inflate the way it does wall-clock time).
best() {
    /usr/bin/python3 - "$runs" "$@" <<'PY'
import resource, subprocess, sys, time
runs, command = int(sys.argv[1]), sys.argv[2:]
walls, cpus = [], []
for _ in range(runs):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
    walls.append((time.perf_counter() - start) * 1000)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpus.append((after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1000)
print(f"{min(walls):.1f} {min(cpus):.1f}")
PY
}
ratio() {
    case $2 in 0|0.0) echo "n/a" ;; *) echo "$1 / $2" | bc -l | cut -c1-5 ;; esac
}
set -- $(best "$cli" chat log) $(best cat "$work/log.txt")
echo "messages $count, $(wc -c <"$work/log.txt") bytes of log; best of $runs, wall / CPU ms"
echo "chat log        $1 / $2"
echo "cat             $3 / $4   ratio $(ratio "$1" "$3") / $(ratio "$2" "$4")"
if [ -x "$printer" ]; then
    set -- "$1" "$2" $(best "$printer" "$work/log.txt")
    echo "Qt printer      $3 / $4   ratio $(ratio "$1" "$3") / $(ratio "$2" "$4")"
fi
