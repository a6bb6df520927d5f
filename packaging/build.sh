# What ./run and ./test share; to be sourced at the root of the project.

say() { printf '==> %s\n' "$*"; }

# build PRESET [TARGET...]: everything, or the targets. Silent when there is nothing to do.
build() {
    local preset=$1
    shift
    if ! [ -e "build/$preset/build.ninja" ]; then
        say "Configuring build/$preset"
        cmake --preset "$preset" >/dev/null
    fi
    cmake --build --preset "$preset" ${1:+--target "$@"} |
        awk -v title="==> Building build/$preset" '
            /^ninja: no work to do/ || /Re-checking globbed directories/ { next }
            !titled++ { print title }
            { print; fflush() }'
}
