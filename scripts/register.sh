# The register of kept cameras; sourced behind common.sh.
#
# A camera is a folder of its name, and only its user reaches it:
#   owner      the scripts/run that keeps it, as "ID START" (proc(5)); an id alone may be somebody else's by now
#   process    process 1 of its world, likewise
#   build      the build folder of its programs
#   started    seconds since 1970
#   daemon     "up COUNT", or "down COUNT" and how the daemon ended; COUNT is the number of its starts
#   *.log      its logs
# Whoever adds or removes a folder holds the lock.

readonly exit_no_camera=4 exit_wrong_use=64

# complain STATUS MESSAGE...
complain() {
    local status=$1
    shift
    echo "scripts/$(basename "$0"): $*" >&2
    exit "$status"
}

# Sets `register`. A folder in /tmp may be anybody's: it counts only if it is ours and closed to others.
open_register() {
    register=/tmp/kzcameras-$EUID
    if [[ ${XDG_RUNTIME_DIR:-} == /* && -d $XDG_RUNTIME_DIR && -O $XDG_RUNTIME_DIR ]]; then
        register=$XDG_RUNTIME_DIR/kzcameras
    fi
    mkdir -m 700 "$register" 2>/dev/null || true
    [[ -d $register && ! -L $register && -O $register && $(stat -c %a "$register") == 700 ]] ||
        complain 1 "$register is not a folder of this user alone; remove it, or set XDG_RUNTIME_DIR to a folder that is"
}

# The start time of a process; nothing when there is none, or only its remains.
start_of() {
    local stat fields
    { stat=$(<"/proc/$1/stat"); } 2>/dev/null || return 0
    read -r -a fields <<<"${stat##*) }"
    [[ ${fields[0]} == [ZX] ]] || echo "${fields[19]}"
}

# Whether the process in a file of the register lives.
lives() {
    local id start
    [[ -r $1 ]] && read -r id start <"$1" && [[ -n $start && $(start_of "$id") == "$start" ]]
}

# Runs a command while nobody else changes the register.
locked() {
    local lock
    exec {lock}>"$register/.lock"
    flock "$lock"
    "$@" {lock}>&-
    exec {lock}>&-
}

forget_dead_cameras() {
    local entry
    for entry in "$register"/*/; do
        if [[ -d $entry ]] && ! lives "$entry/owner" && ! lives "$entry/process"; then
            rm -rf -- "$entry"
        fi
    done
}

# Whether a camera of this name can be entered. One that is starting cannot.
is_up() {
    [[ $1 =~ ^[A-Za-z0-9][A-Za-z0-9._-]*$ && -e $register/$1/daemon ]] && lives "$register/$1/process"
}

# The names of the cameras that are up.
cameras_up() {
    local entry
    locked forget_dead_cameras
    for entry in "$register"/*/; do
        entry=${entry%/}
        if is_up "${entry##*/}"; then
            echo "${entry##*/}"
        fi
    done
}

# Sets `camera` to the one that is up. With none or several the user has to act: choose_only_camera [TYPED_WORD].
choose_only_camera() {
    local up
    mapfile -t up < <(cameras_up)
    case ${#up[@]} in
        0) complain $exit_no_camera "no camera is up; start one with scripts/run --keep" ;;
        1) camera=${up[0]} ;;
        *) complain $exit_wrong_use "${1:+no camera is called $1; }several cameras are up, name one of them: ${up[*]}" ;;
    esac
}

# Sets `inside` to what runs a command in the world of a camera: prepare_entering NAME COMMAND... It ends with its caller.
prepare_entering() {
    local id
    read -r id _ <"$register/$1/process"
    inside=(nsenter --target "$id" --mount --ipc --pid)
    if ((EUID != 0)); then
        inside+=(--user --preserve-credentials)
    fi
    forget_other_cameras
    use_programs "$(<"$register/$1/build")"
    shift
    inside+=(setpriv --pdeathsig TERM -- bash -c '
        cd -- "$0" 2>/dev/null || { cd /; echo "$0 is not in the world of the camera; running in /" >&2; }
        exec -- "$@"' "$PWD" "$@")
}
