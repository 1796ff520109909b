# Sourced by the scripts of this folder that work in clean Debian systems. They set self, their name.
# shellcheck shell=bash

fail() {
    printf "${self:?}: %s\n" "$@" >&2
    exit 1
}

# The mirror that the machine's own Debian packages come from.
debian_mirror() {
    local mirror
    # shellcheck disable=SC2016
    mirror=$(apt-get indextargets --format '$(CREATED_BY)|$(ORIGIN)|$(COMPONENT)|$(REPO_URI)' |
        awk -F'|' '$1 == "Packages" && $2 == "Debian" && $3 == "main" && $4 !~ /security/ {print $4; exit}')
    [[ -n $mirror ]] || fail "this machine's apt knows no Debian mirror (apt-get indextargets)"
    echo "$mirror"
}

# needs_tools TOOL...: each is in the package of its name, but where two names are given as TOOL:PACKAGE.
needs_tools() {
    local tool
    for tool in "$@"; do
        command -v "${tool%:*}" >/dev/null ||
            fail "the program ${tool%:*} is missing; install the package ${tool#*:}"
    done
}

# make_root FOLDER [MMDEBSTRAP-OPTION...]: a minimal Debian 12 of this machine's architecture. What is
# mounted there meanwhile is seen by mmdebstrap alone, so that a run that is cut short leaves no mounts.
make_root() {
    local root=$1 mirror
    shift
    needs_tools mmdebstrap bwrap:bubblewrap unshare:util-linux
    ((EUID == 0)) || fail "a clean system can only be made by root"
    mirror=$(debian_mirror)
    unshare --mount mmdebstrap --quiet --variant=minbase --mode=root "$@" bookworm "$root" "deb $mirror bookworm main"
    cp -L /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
}

# in_root FOLDER [BWRAP-OPTION...] -- COMMAND...: inside the clean system, as on a machine of its own.
in_root() {
    local root=$1
    shift
    bwrap --die-with-parent --unshare-pid --cap-add ALL --clearenv \
        --setenv PATH /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        --setenv HOME /root --setenv LANG C.UTF-8 --bind "$root" / --proc /proc --dev /dev \
        "$@"
}

# The version of the newest release that the tree records.
last_release() {
    local last
    last=$(find "${top:?}/packaging/releases" -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort -V | tail -n 1)
    [[ -n $last ]] || fail "packaging/releases records no release"
    echo "$last"
}

# packages_of_last_release ARCHITECTURE: the folder with its packages, built from its source the first time.
packages_of_last_release() {
    local last source folder
    last=$(last_release)
    source=$(<"$top/packaging/releases/$last/source")
    folder=$top/build/released/$last
    if [[ ! -e $folder/done-$1 ]]; then
        git -C "$top" cat-file -e "$source" 2>/dev/null ||
            fail "the source of the release $last, tree $source, is not in this clone; fetch its whole history"
        echo "$self: building the packages of $last for $1 from its source, which takes minutes" >&2
        mkdir -p "$folder/tree"
        git -C "$top" archive "$source" | tar -C "$folder/tree" -xf -
        SOURCE_DATE_EPOCH=$(git -C "$top" log -1 --format=%ct) "$folder/tree/packaging/make-packages" "$1" \
            >"$folder/$1.log" 2>&1 || fail "the packages of $last could not be built; see $folder/$1.log"
        touch "$folder/done-$1"
    fi
    echo "$folder/tree/build/packages/$1"
}

# made_packages ARCHITECTURE: sets packages to those that make-packages has left, all five of them.
made_packages() {
    packages=("${top:?}/build/packages/$1"/*.deb)
    ((${#packages[@]} == 5)) ||
        fail "there are not five packages in build/packages/$1; packaging/make-packages makes them"
}

# unpack ARTEFACT FOLDER: a Debian package, a wheel or an npm tarball into FOLDER, which is made anew.
unpack() {
    rm -rf "$2"
    mkdir "$2"
    case $1 in
        *.deb) dpkg-deb --extract "$1" "$2" ;;
        *.whl) python3 -m zipfile -e "$1" "$2" ;;
        *.tgz) tar -C "$2" -xzf "$1" ;;
        *) fail "$1: neither a Debian package nor a wheel nor an npm tarball" ;;
    esac
}

# elf_files FOLDER: programs and libraries in it, each ended by NUL.
elf_files() {
    find "$1" -type f -print0 | while IFS= read -r -d '' file; do
        [[ $(head -c 4 "$file" | od -An -tx1 | tr -d ' ') != 7f454c46 ]] || printf '%s\0' "$file"
    done
}

# copy_tree FOLDER: what git knows of the tree, and what is new and not ignored.
copy_tree() {
    (cd "${top:?}" && git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do [[ ! -e $file && ! -L $file ]] || printf '%s\0' "$file"; done |
        tar --null --files-from=- -cf -) | tar -C "$1" -xf -
}

# The time that artefacts carry: $SOURCE_DATE_EPOCH, else that of the last commit, else the changelog's.
source_date() {
    if [[ -n ${SOURCE_DATE_EPOCH:-} ]]; then
        echo "$SOURCE_DATE_EPOCH"
    else
        git -C "$top" log -1 --format=%ct 2>/dev/null ||
            date -d "$(sed -n 's/^ -- .*>  //p;T;q' "$top/packaging/debian/changelog")" +%s
    fi
}
