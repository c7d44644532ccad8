#!/usr/bin/env bash
# The tree as its users get it: installed into a throwaway prefix, the two
# example programs built against that prefix alone and talking to each
# other (and to the installed zelc), the pkg-config files compiling the
# client too; then, where the tree offers them, the Debian packages
# unpacked into a throwaway root, their file lists and dependencies
# checked and their tools run from there.
#
#   check_install.sh SOURCE BUILD TAG PYTHONDIR DEBS(ON|OFF)
set -euo pipefail
src=$1 build=$2 tag=$3 pydir=$4 debs=$5
for tool in ninja pkg-config g++; do
    command -v $tool >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
if [ "$debs" = ON ]; then
    for tool in dpkg-deb dpkg-shlibdeps file; do
        command -v $tool >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
    done
fi

tmp=$(mktemp -d)
agent_pid=""
cleanup() {
    [ -z "$agent_pid" ] || { kill "$agent_pid" 2>/dev/null; wait "$agent_pid" 2>/dev/null || true; }
    rm -rf "$tmp"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
# Nothing of the build tree nor of the caller's environment reaches what
# runs below: only a PATH and the agents folder.
clean=(env -i PATH=/usr/local/bin:/usr/bin:/bin HOME="$tmp" ZELC_AGENTS_DIR="$tmp/agents")
mkdir -p "$tmp/agents"

expect_files() {   # ROOT FILE...: every FILE is there
    local root=$1; shift
    for f in "$@"; do [ -e "$root/$f" ] || [ -L "$root/$f" ] || fail "$root/$f is missing"; done
}

# Starts the agent program given, waits for its banner; $agent_pid.
start_agent() {
    "$@" >"$tmp/agent.out" 2>&1 &
    agent_pid=$!
    for _ in $(seq 100); do
        grep -q ' ready' "$tmp/agent.out" && return 0
        kill -0 "$agent_pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$tmp/agent.out" >&2
    fail "$* did not start"
}
stop_agent() {
    kill -TERM "$agent_pid"
    wait "$agent_pid" || fail "the agent ended with status $?"
    agent_pid=""
}

py=$(cd "$build/lib" && ls _ZelServer*)
suffix=${py#_ZelServer}
lib=libZelPy$tag.so

# -- cmake --install
p=$tmp/prefix
cmake --install "$build" --prefix "$p" >/dev/null
expect_files "$p" lib/libzel.so lib/libzel.so.0 lib/$lib lib/$lib.0 include/Zel/Entity.h include/ZelPy/PyClient.h \
    "$pydir/_Zel$suffix" "$pydir/_ZelProxy$suffix" "$pydir/_ZelServer$suffix" "$pydir/Zel/__init__.py" \
    "$pydir/PyServer.py" bin/zelagent$tag bin/zelc$tag share/man/man1/zelagent$tag.1 share/man/man1/zelc$tag.1 \
    share/doc/zelpy/README.md share/doc/zelpy/install.md lib/cmake/ZelPy/ZelPyConfig.cmake \
    lib/pkgconfig/zel.pc lib/pkgconfig/zelpy$tag.pc
[ -z "$(find "$p" -name '*ZelDemo*')" ] || fail "the demo types were installed"
grep -q "$build" -r "$p/lib/cmake" "$p/lib/pkgconfig" && fail "the package files name the build tree"

# -- the examples, built against the prefix alone, and the installed tools
for ex in client agent; do
    "${clean[@]}" cmake -S "$src/examples/$ex" -B "$tmp/$ex" -G Ninja -DCMAKE_PREFIX_PATH="$p" >"$tmp/$ex.log" 2>&1 &&
        "${clean[@]}" ninja -C "$tmp/$ex" >>"$tmp/$ex.log" 2>&1 || { cat "$tmp/$ex.log" >&2; fail "examples/$ex does not build"; }
done
PKG_CONFIG_PATH=$p/lib/pkgconfig
g++ -std=c++20 -o "$tmp/pc-client" "$src/examples/client/main.cpp" $(PKG_CONFIG_PATH=$PKG_CONFIG_PATH pkg-config \
    --cflags --libs zelpy$tag) -Wl,-rpath,"$p/lib" || fail "the client does not build with pkg-config"

counter="__import__('Zel').root().entity['counter']"
start_agent "${clean[@]}" "$tmp/agent/zelpy-agent-example" ex.agent
[ "$("${clean[@]}" "$tmp/client/zelpy-client-example" ex.agent "$counter.add(5)")" = 5 ] || fail "the example client"
[ "$("${clean[@]}" "$tmp/pc-client" ex.agent "$counter.add(2)")" = 7 ] || fail "the client built with pkg-config"
[ "$("${clean[@]}" "$p/bin/zelc$tag" ex.agent "$counter.count")" = 7 ] || fail "the installed zelc"
stop_agent
# The installed agent finds its own package, not the build tree's.
start_agent "${clean[@]}" "$p/bin/zelagent$tag" inst.agent
where=$("${clean[@]}" "$p/bin/zelc$tag" inst.agent "__import__('PyServer').__file__")
case $where in "'$p/$pydir/"*) ;; *) fail "the installed zelagent runs PyServer from $where" ;; esac
stop_agent

[ "$debs" = ON ] || { echo "install and examples passed (no Debian packages in this tree)"; exit 0; }

# -- the Debian packages
(cd "$tmp" && cpack -G DEB -B "$tmp/debs" --config "$build/CPackConfig.cmake" >"$tmp/cpack.log" 2>&1) ||
    { cat "$tmp/cpack.log" >&2; fail "cpack"; }
root=$tmp/root
declare -A wanted=(
    [libzel0]="usr/lib/libzel.so.0"
    [libzel-dev]="usr/lib/libzel.so usr/include/Zel/Entity.h usr/include/ZelPy/PyClient.h usr/lib/pkgconfig/zel.pc"
    [libzelpy${tag:+$tag-}0]="usr/lib/$lib.0"
    [libzelpy$tag-dev]="usr/lib/$lib usr/lib/pkgconfig/zelpy$tag.pc"
    [python3-zelpy]="usr/$pydir/_Zel$suffix usr/$pydir/Zel/__init__.py usr/$pydir/PyServer.py"
    [zelpy$tag-tools]="usr/bin/zelagent$tag usr/bin/zelc$tag usr/share/man/man1/zelc$tag.1"
    [zelpy-doc]="usr/share/doc/zelpy/install.md")
for pkg in "${!wanted[@]}"; do
    deb=$(ls "$tmp/debs/${pkg}_"*.deb 2>/dev/null) || fail "no package $pkg"
    dpkg-deb -x "$deb" "$root"
    files=$(dpkg-deb -c "$deb")
    for f in ${wanted[$pkg]}; do grep -q " ./$f\( \|$\)" <<<"$files" || fail "$pkg lacks /$f"; done
done
dpkg-deb -f "$tmp/debs/libzelpy$tag-0_"*.deb Depends | grep -q "libpython$tag" || fail "libzelpy$tag-0 does not depend on libpython$tag"
dpkg-deb -f "$tmp/debs/zelpy$tag-tools_"*.deb Depends | grep -q "python3-zelpy" || fail "the tools do not depend on the modules"
dpkg-deb -c "$tmp/debs/libzel-dev_"*.deb | grep -q "$lib" && fail "libzel-dev carries libZelPy"
start_agent "${clean[@]}" "$root/usr/bin/zelagent$tag" deb.agent
[ "$("${clean[@]}" "$root/usr/bin/zelc$tag" deb.agent "__import__('PyServer').__file__")" = "'$root/usr/$pydir/PyServer.py'" ] ||
    fail "the packaged tools"
stop_agent
echo "install, examples and Debian packages passed"
