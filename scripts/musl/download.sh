# shellcheck shell=bash disable=SC2154 # downloads and repo are the caller's
# Downloads the files that sources.txt in this folder lists, and verifies their checksums. Source it
# after setup.sh, with `downloads` set to the target directory.

list=$(dirname "${BASH_SOURCE[0]}")/sources.txt

entries() { grep -v '^\(#\|$\)' "$list"; }

# file_of PACKAGE: prints the name of the package's file. PACKAGE may be a pattern.
file_of() {
    local how package version file
    while read -r how package version file _; do
        # shellcheck disable=SC2053 # a pattern on purpose
        [[ $package == $1 ]] || continue
        printf '%s\n' "$file"
        return 0
    done < <(entries)
    die "scripts/musl/sources.txt does not name $1"
}

is_intact() { printf '%s  %s\n' "$2" "$downloads/$1" | sha256sum --check --status 2>/dev/null; }

# apt get|cache ARGUMENT...: runs apt-get or apt-cache with a separate state, cache and list of
# sources in the directory $scratch, so that this machine's own remain unchanged. It uses the
# machine's mirror and settings.
apt() {
    local tool=apt-$1
    shift
    "$tool" -qq -o Dir::State="$scratch/state" -o Dir::State::status="$scratch/status" -o Dir::Cache="$scratch/cache" \
        -o Dir::Etc::sourcelist="$scratch/sources.list" -o Dir::Etc::sourceparts=/dev/null -o APT::Sandbox::User=root \
        -o APT::Architecture=amd64 -o APT::Architectures::=amd64 -o APT::Architectures::=armhf "$@"
}

# "set -e" has no effect in the functions below, because download_all tests their result.

prepare_apt() {
    [ ! -e "$scratch/sources.list" ] || return 0
    local mirror key=/usr/share/keyrings/debian-archive-keyring.gpg
    mirror=$(debian_mirror) || return
    mkdir -p "$scratch/state/lists/partial" "$scratch/cache/archives/partial"
    : >"$scratch/status"
    cat >"$scratch/sources.list" <<END
deb [arch=amd64,armhf signed-by=$key] $mirror bookworm main
deb-src [signed-by=$key] $mirror bookworm main
deb-src [signed-by=$key] $mirror trixie main
END
    apt get update -o APT::Update::Error-Mode=any # by default, unreachable mirrors are no error
}

# upstream_archive PACKAGE VERSION: downloads it. All Debian revisions of the version have the same
# archive.
upstream_archive() {
    local revision
    revision=$(apt cache showsrc --only-source "$1" |
        awk -v prefix="$2-" '$1 == "Version:" && index($2, prefix) == 1 { found = $2 } END { print found }')
    [ -n "$revision" ] || return
    apt get source --download-only --tar-only "$1=$revision"
}

# download HOW PACKAGE VERSION: downloads the package's file into the working directory.
download() {
    case $1 in
    npm) npm pack --loglevel=error --no-update-notifier --ignore-scripts --cache="$scratch/npm" "$2@$3" ;;
    source) prepare_apt && upstream_archive "$2" "$3" ;;
    deb) prepare_apt && apt get download "$2=$3" ;;
    *) die "scripts/musl/sources.txt: unknown kind of source '$1'" ;;
    esac
}

# download_all: downloads the missing files, and deletes a file that does not match its checksum.
download_all() {
    local how package version file checksum scratch=$downloads/scratch
    rm -rf "$scratch"
    mkdir "$scratch"
    while read -r how package version file checksum; do
        ! is_intact "$file" "$checksum" || continue
        say "Downloading $package $version" >&2
        rm -f "$downloads/$file"
        (cd "$downloads" && download "$how" "$package" "$version") >&2 </dev/null ||
            die "$package $version is not available; see scripts/musl/sources.txt"
        is_intact "$file" "$checksum" || {
            rm -f "$downloads/$file"
            die "$file is not the file that scripts/musl/sources.txt describes"
        }
    done < <(entries)
    rm -rf "$scratch"
}
