#!/bin/sh
# Whole programs side by side with cat, as the README's Speed section quotes
# them: zpe json, and zpe import of one changed value (a dry run, and a real
# write flushed to disk) on the demo image padded to 384 KiB. Beside the real
# write runs write_floor, which replaces the image the way a save does with
# nothing planned: the part of the time that is the write itself.
#
#   bench/whole_programs.sh [BIN]     BIN: the folder holding zpe and demo.nes
#                                     (default build/rel/bin, a Release build)
#
# Needs hyperfine and python3. The files live in a temporary folder on the
# same disk as /tmp; the real write's --prepare copies the image back and
# syncs it, so each run writes and flushes only its own file.
set -eu
BIN=$(cd "${1:-build/rel/bin}" && pwd)
for tool in hyperfine python3; do
    command -v "$tool" >/dev/null || { echo "whole_programs.sh: $tool is not installed" >&2; exit 2; }
done
[ -x "$BIN/zpe" ] && [ -x "$BIN/write_floor" ] && [ -f "$BIN/demo.nes" ] ||
    { echo "whole_programs.sh: no zpe, write_floor and demo.nes in $BIN" >&2; exit 2; }
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT INT TERM
cd "$WORK"

# The demo image with zeros after it up to 384 KiB and its header.
python3 - "$BIN/demo.nes" <<'EOF'
import sys
data = open(sys.argv[1], 'rb').read()
open('big.orig', 'wb').write(data + bytes(393232 - len(data)))
EOF
cp big.orig big.nes

# edit1.json: the whole playbook as zpe json writes it, its sequences cut to
# the one at A028, whose third command's second value goes from 16 to 17.
"$BIN/zpe" json big.nes > full.json
python3 - <<'EOF'
import json
doc = json.load(open('full.json'))
seq = next(s for s in doc['sequences'] if s['address'] == 'A028')
command = seq['commands'][2]
command['data'][1] += 1
command.pop('text', None)
doc['sequences'] = [seq]
json.dump(doc, open('edit1.json', 'w'), indent=1)
EOF
printf '#!/bin/sh\ncp big.orig big.nes && sync big.nes && sync -f .\n' > restore.sh
chmod +x restore.sh

hyperfine -N --warmup 20 --runs 200 \
    "cat big.nes" \
    "$BIN/zpe json big.nes" \
    "$BIN/zpe -q import big.nes edit1.json --dry-run"
hyperfine -N --warmup 10 --runs 100 --prepare ./restore.sh \
    "cat big.nes" \
    "$BIN/write_floor big.nes" \
    "$BIN/zpe -q import big.nes edit1.json"
