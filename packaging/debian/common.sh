# shellcheck shell=bash
# What the scripts in this folder share. They run in the project's root.

# shellcheck disable=SC2034 # for them
packages=build/packages

fail() {
    echo "package: $1" >&2
    exit 1
}

# The version of project().
version() {
    sed -n 's/^project(CapsoConfig VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt
}

# The number of the Debian that this runs on; only those are known that the packages are proved on.
release() {
    local id
    # shellcheck source=/dev/null
    id=$(. /etc/os-release && echo "${ID:-} ${VERSION_ID:-}")
    case $id in
        "debian 12" | "debian 13") echo "${id#debian }" ;;
        *) fail "packages are made on Debian 12 and Debian 13; this is '$id'" ;;
    esac
}

# Copies the sources, as they are committed, into the given new folder; without git, all but what builds leave. File
# modes and times depend on nothing but the sources.
export_sources() {
    local folder=$1
    mkdir -p "$folder"
    if git rev-parse --git-dir >/dev/null 2>&1; then
        [ -z "$(git status --porcelain)" ] || echo "package: what is not committed is left out" >&2
        git archive HEAD | tar -x -C "$folder"
    else
        tar -c --exclude=./.git --exclude=./build --exclude='./obj-*' . | tar -x -C "$folder"
    fi
    chmod -R u=rwX,go=rX "$folder"
    find "$folder" -exec touch --no-dereference --date="@$(source_date)" {} +
}

# The time of the newest entry in debian/changelog, in seconds since 1970.
source_date() {
    date --date="$(sed -n 's/^ -- .*>  //p' debian/changelog | head -n 1)" +%s
}
