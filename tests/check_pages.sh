#!/usr/bin/env bash
# tests/check_pages.sh BUILD [PAGE]   fails when a step of docs/pages.md does not do what stands there
#
# BUILD is build/release; PAGE is another page of docs.  One shell is told all steps, each with ports that are free; what it
# says behind a step has to be the block below that.
set -eu -o pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$(realpath "$1")
page=${2-pages.md}
export PATH=$build/bin:$PATH KORVO_PAGES=$root/share/korvo/web
scratch=$(mktemp -d /tmp/korvo-pages.XXXXXX)  # a short name: macros go by at most 127 characters
clean_up() {
  # The session of the steps, where one of them has failed.
  [ ! -s "$scratch/session" ] ||
    awk -v session="$(cat "$scratch/session")" '$6 == session { print $1 }' /proc/[0-9]*/stat 2>/dev/null |
    xargs -r kill -KILL 2>/dev/null || true
  rm -rf "$scratch"
}
trap clean_up EXIT
mkdir "$scratch/work"

# The numbers of the document, and ports that nobody uses instead.
python3 - "$scratch" "$page" <<'END'
import pathlib, re, socket, sys

scratch = pathlib.Path(sys.argv[1])
text = (pathlib.Path("docs") / sys.argv[2]).read_text(encoding="utf-8")
held = []
port = 2000
for number in sorted(set(re.findall(r"\b80\d\d\b", text))):
    while True:
        port += 1
        tcp, udp = socket.socket(), socket.socket(type=socket.SOCK_DGRAM)
        try:
            tcp.bind(("127.0.0.1", port))
            udp.bind(("127.0.0.1", port))
            break
        except OSError:
            continue
    held += [tcp, udp]
    text = re.sub(rf"\b{number}\b", str(port), text)
blocks = re.findall(r"^```(\w+)\n(.*?)^```$", text, re.M | re.S)
script = f"cut -d' ' -f6 /proc/$$/stat >{scratch}/session\nset -eu -o pipefail -m\n"
expected, step = "", 0
for kind, block in blocks:
    if kind == "sh":
        step += 1
        script += f"echo '-- step {step}'\n{block}"
        expected += f"-- step {step}\n"
    else:
        expected += block
(scratch / "script").write_text(script, encoding="utf-8")
(scratch / "expected").write_text(expected, encoding="utf-8")
END

cd "$scratch/work"
status=0
setsid --wait timeout 120 bash "$scratch/script" >"$scratch/said" 2>&1 </dev/null || status=$?
if [ $status -ne 0 ] || ! diff "$scratch/expected" "$scratch/said"; then
  echo "check_pages: a step of docs/$page does otherwise, status $status" >&2
  exit 1
fi
