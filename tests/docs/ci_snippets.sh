#!/bin/bash
# Runs the commands of the CI jobs in docs/checking.md, with our plug-in and server in the place of the reader's.
#
#     ci_snippets.sh PAGE VRX PLUGIN
set -euo pipefail
page=$1 vrx=$2 plugin=$3
folder=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server" 2>/dev/null || true; rm -rf "$folder"' EXIT
cd "$folder"
mkdir bin build
ln -s "$vrx" bin/vrx
ln -s "$plugin" build/my_talker.so
export PATH=$folder/bin:$PATH

# A port that was free a moment ago.
"$vrx" serve --quiet >port & probe=$!
until grep -q : port; do sleep 0.05; done
port=$(sed 's/.*://' port)
kill "$probe"
wait "$probe" || true
# The reader's server, which the job leaves running.
cat >my_server <<END
#!/bin/sh
echo \$\$ >$folder/server
exec "$vrx" serve --quiet "\$@"
END
chmod +x my_server

# What stands behind "- run:" in the blocks of YAML, one file for each.
awk '/^```/ { yaml = $0 == "```yaml"; job = 0; next }
     !yaml { next }
     /^- run: \|/ { job = ++count; next }
     /^- run: / { sub(/^- run: /, ""); print > ("job" ++count); job = 0; next }
     /^- / { job = 0 }
     job { print > ("job" job) }' "$page"
jobs=(job*)
[ ${#jobs[@]} = 2 ] || { echo "expected two jobs, found ${#jobs[@]}"; exit 1; }
for job in "${jobs[@]}"; do
    sed -i "s/7000/$port/g" "$job"
    echo "== $(cat "$job")"
    rm -f check.xml
    bash -e "$job" >out
    ! grep skipped out
    grep -q '<testsuite name="vrx check' check.xml
    ! grep -E '<(failure|error)' check.xml
    tail -n 1 out
done
server=$(cat server)
