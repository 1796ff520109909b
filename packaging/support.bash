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

# make_root FOLDER [MMDEBSTRAP-OPTION...]: a minimal Debian 12 of this machine's architecture.
make_root() {
    local root=$1 mirror
    shift
    needs_tools mmdebstrap bwrap:bubblewrap
    ((EUID == 0)) || fail "a clean system can only be made by root"
    mirror=$(debian_mirror)
    mmdebstrap --quiet --variant=minbase --mode=root "$@" bookworm "$root" "deb $mirror bookworm main"
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
