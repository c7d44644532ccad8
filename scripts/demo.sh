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
import os, sys, Zel
sw = Zel.root().entity["sw1"]
eth1 = sw.intf.newMember("eth1")
def report(name, value):
    print("[agent] eth1.%s is now %r" % (name, value))
    sys.stdout.flush()
ticks = []
def tick():
    ticks.append(Zel.now())
    print("[agent] clock wake-up %d" % len(ticks))
    sys.stdout.flush()
    if len(ticks) < 3:
        timer.after(0.5)
timer = Zel.timer(tick, at=Zel.now() + 0.5)
# Kept beyond this command, which has its own namespace.
Zel.demoKeep = (Zel.notifiee(eth1, report, attrs=["mtu", "description"]), timer)
print("[agent] start-up ran in process %d (same-process mode)" % os.getpid())
PY

step "Start an agent for switch sw1 (agent files in $ZELC_AGENTS_DIR)"
"$build/bin/zelagent" demo.sw1 --startup "$work/startup.py" &
agent_pid=$!
for _ in $(seq 50); do [ -f "$ZELC_AGENTS_DIR/demo.sw1" ] && break; sleep 0.1; done
echo "agent pid $agent_pid; its agent file (pid, TCP port, UNIX socket):"
sed 's/^/    /' "$ZELC_AGENTS_DIR/demo.sw1"

step "Evaluate an expression in the agent"
zelc demo.sw1 "6 * 7"
zelc demo.sw1 "'Python ' + __import__('platform').python_version()"

step "Look at a framework type from inside the agent, through _Zel"
zelc demo.sw1 "[a.name for a in __import__('_Zel').typeNode('Demo::Switch').attributeQ]"
zelc demo.sw1 "__import__('_Zel').typeNode('Demo::Interface').attr('mtu')"

step "Clock wake-ups scheduled by the start-up file fire in the agent"
sleep 1.8

step "Change an interface from a Python script through the Zel package; the agent's notifiee reports it"
cat > "$work/change.py" <<'PY'
import Zel
eth1 = Zel.root().entity["sw1"].intf["eth1"]
eth1.mtu = 9000
eth1.description = "uplink"
eth1.adminUp = True          # not in the notifiee's filter: no report
print("eth1: mtu %d description %r" % (eth1.mtu, eth1.description))
PY
zelc -x demo.sw1 "$(cat "$work/change.py")"
sleep 0.2

step "Execute statements: the connection keeps one namespace"
zelc -x demo.sw1 "import os; print('agent pid %d' % os.getpid())"

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
