# Completion of orvanectl for bash. A test compares the sub-commands and options with `orvanectl --help`.

declare -gA _orvanectl_options=(
    [exists]='--json'
    [is-dir]='--json'
    [ls]='--json'
    [prepare-dir]='--recursive --json'
    [mkdir]='--recursive --json'
    [move]='--strict --dry-run --itemize --progress --json'
    [move-children]='--strict --dry-run --itemize --progress --json'
    [copy]='--dry-run --itemize --progress --json'
    [copy-children]='--dry-run --itemize --progress --json'
    [copy-comb]='--strict --force --dry-run --itemize --progress --json'
    [rm]='--keep-going --dry-run --itemize --json'
    [restorecon]='--recursive --from-parent --json'
    [chown]='--recursive --json'
    [chmod]='--recursive --json'
    [existing-path]='--json'
    [du]='--human-readable --json'
    [largest]='--human-readable --json'
    [status]='--json'
    [records]='--since --until --type --errno --path --verbose --json --html --output --color --no-pager --summary --by --against --directory --host-from --lines --reverse --follow'
    [dumps]='--directory --json'
)
declare -g _orvanectl_types='COPY MOVE CHOWN CHMOD MKDIR RESTORECON_FROMPARENT RESTORECON_NORECURSE RESTORECONRECURSEPARALLEL Unlink RMDIR
    REMOVE OPEN_TRYREMOVE OPEN_TRYCOPY OPEN_MIGRATESUB OPEN_COPYCOMBRECURSE OPEN_ADDBLKSRECURSE
    OPEN_RECMAXSIZERECURSE LISTDIR_OPEN ISEXIST OPEN_CHMOWNERECURSE OPEN_CHMODERECURSE ISDIR GETUIDGID
    ADDBLKS_LSTAT MAXSIZE_LSTAT GET_EXISTED_PATH INVALID_RECURSEOPT_MKDIR INVALID_RECURSEOPT_PREPAREDIR
    INVALID_RECURSEOPT_CHOWN INVALID_RECURSEOPT_CHMOD INVALID_RECURSEOPT_RESTORECON TRANSFORM_MODE PARA_EMPTY
    UID_GETPWNAM UID_STRTOUL UID_IS_NULL GID_GETGRNAM GID_STRTOUL GID_IS_NULL RECVBUFSIZE INVALID_STR INVALID_CMD
    INVALID_MODE INVALID_RECURSEOPT'
declare -g _orvanectl_errors='EPERM ENOENT EIO ENOMEM EACCES EBUSY EEXIST EXDEV ENOTDIR EISDIR EINVAL ENFILE EMFILE ETXTBSY EFBIG ENOSPC
    EROFS EMLINK ERANGE ENAMETOOLONG ENOTEMPTY ELOOP EOPNOTSUPP ESTALE EUCLEAN EDQUOT'
declare -g _orvanectl_common='--help --version --socket --timeout'

# Sets `command` to the sub-command on the line and `operands` to the number of its arguments before the cursor.
_orvanectl_parse() {
    local i line=${COMP_LINE:0:COMP_POINT} words
    read -r -a words <<<"$line"
    [[ $line == *' ' ]] || unset 'words[-1]'
    command='' operands=0
    for ((i = 1; i < ${#words[@]}; i++)); do
        case ${words[i]} in
        --socket | --timeout | --progress | --since | --until | --type | --errno | --path | --by | --against | --output | -o | --color | --directory | --host-from | --lines | -n) ((i++)) ;;
        -*) ;;
        *) if [[ -z $command ]]; then command=${words[i]}; else ((++operands)); fi ;;
        esac
    done
}

# Completes USER:GROUP. If a colon ends a word for readline, only the part after the colon is completed.
_orvanectl_owner() {
    local owner=${COMP_LINE:0:COMP_POINT} prefix=
    owner=${owner##* }
    if [[ $owner == *:* ]]; then
        [[ $COMP_WORDBREAKS == *:* ]] || prefix=${owner%%:*}:
        mapfile -t COMPREPLY < <(compgen -P "$prefix" -g -- "${owner#*:}")
    else
        mapfile -t COMPREPLY < <(compgen -S : -u -- "$owner")
        compopt -o nospace 2>/dev/null
    fi
}

_orvanectl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command operands
    if [[ $previous == = ]]; then previous=${COMP_WORDS[COMP_CWORD - 2]}; fi
    if [[ $current == = ]]; then previous=${COMP_WORDS[COMP_CWORD - 1]} current=; fi
    _orvanectl_parse
    COMPREPLY=()
    case $previous in
    --progress) mapfile -t COMPREPLY < <(compgen -W 'always never' -- "$current") && return ;;
    --output | -o) mapfile -t COMPREPLY < <(compgen -W 'html json short verbose' -- "$current") && return ;;
    --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$current") && return ;;
    --by) mapfile -t COMPREPLY < <(compgen -W 'host cause type errno day' -- "$current") && return ;;
    --type) mapfile -t COMPREPLY < <(compgen -W "$_orvanectl_types" -- "$current") && return ;;
    --errno) mapfile -t COMPREPLY < <(compgen -W "$_orvanectl_errors" -- "$current") && return ;;
    --timeout | --since | --until | --lines | -n) return ;;
    --directory) compopt -o dirnames 2>/dev/null && return ;;
    --socket | --path | --against | --host-from) compopt -o default 2>/dev/null && return ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$_orvanectl_common ${_orvanectl_options[${command:-none}]-}" -- "$current")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${!_orvanectl_options[*]}" -- "$current")
    else
        case $command:$operands in
        chown:0 | prepare-dir:0 | copy-comb:0) _orvanectl_owner ;;
        chmod:0 | prepare-dir:1 | copy-comb:1) ;; # a mode
        status:*) ;;
        dumps:*)
            mapfile -t COMPREPLY < <(compgen -W "$(orvanectl dumps 2>/dev/null | cut -d ' ' -f 1)" -- "$current")
            ;;
        *) compopt -o default 2>/dev/null ;;
        esac
    fi
}
complete -F _orvanectl orvanectl
