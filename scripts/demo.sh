#!/usr/bin/env bash
# The main job: an agent serving Python for a demo switch, reached from a
# terminal client. Leaves no process and no file behind, also when
# interrupted.
set -euo pipefail
build=${1:-$(cd "$(dirname "$0")/.." && pwd)/build}
work=$(mktemp -d)
export ZELC_AGENTS_DIR=$work/agents
agent_pid=""

cleanup() {
  if [ -n "$agent_pid" ] && kill -0 "$agent_pid" 2>/dev/null; then
    kill -TERM "$agent_pid" 2>/dev/null || true
    wait "$agent_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

step() { printf '\n== %s\n' "$*"; }
zelc() { echo "\$ zelc $*"; "$build/bin/zelc" "$@"; }

cat > "$work/startup.py" <<'PY'
# Runs inside the agent through a client built for the agent itself: the
# agent file names this very process, so the command runs in-process.
import _Zel
print 'start-up file ran in process', __import__('os').getpid()
PY

step "Start an agent for switch sw1 (agent files in $ZELC_AGENTS_DIR)"
"$build/bin/zelagent" demo.sw1 --startup "$work/startup.py" &
agent_pid=$!
for _ in $(seq 50); do [ -f "$ZELC_AGENTS_DIR/demo.sw1" ] && break; sleep 0.1; done
echo "agent pid $agent_pid; its agent file (pid, TCP port, UNIX socket):"
sed 's/^/    /' "$ZELC_AGENTS_DIR/demo.sw1"

step "Evaluate an expression in the agent"
zelc demo.sw1 "6 * 7"

step "Look at a framework type from inside the agent, through _Zel"
zelc demo.sw1 "[a.name for a in __import__('_Zel').typeNode('Demo::Switch').attributeQ]"
zelc demo.sw1 "__import__('_Zel').typeNode('Demo::Interface').attr('mtu')"

step "Execute statements: the connection keeps one namespace"
zelc -x demo.sw1 "import os; print 'agent pid', os.getpid()"

step "A command that raises: exit status 1, the agent's traceback on stderr"
set +e
zelc demo.sw1 "1/0"
echo "exit status $?"
set -e

step "Stop the agent: its agent file goes with it"
kill -TERM "$agent_pid"
wait "$agent_pid" || true
agent_pid=""
ls "$ZELC_AGENTS_DIR" | sed 's/^/    /'
[ -e "$ZELC_AGENTS_DIR/demo.sw1" ] && echo "agent file still there!" || echo "agent file removed"

step "An absent agent: exit status 2"
set +e
zelc demo.sw1 "1"
echo "exit status $?"
set -e
