#!/usr/bin/env bash
# ukey doctor on the places around the libraries: who may enter and change the install directory,
# the log, the USB bus; and whether its remedies mend what they are for.
# shellcheck source=tests/ukey/doctor_support.bash
. "$(dirname "$(readlink -f "$0")")/doctor_support.bash"

log=tmp/ValtoPinpad_KESTA.log

# ---- The install directory

test_closed_install_directory_is_opened_not_installed_again() {
    healthy_system
    chmod 000 "root/$directory"
    as_an_ordinary_user
    finding install-directory problem 'files/bin is closed to this user: Permission denied'
    expect_matches "libraries" 'comes with the install directory, see above' "$(<out)"
    grep -q 'install the maker' out && fail "it says to install" "$(<out)"
    mends install-directory 'chmod a\+rx .*'
    chmod -R u+w root # so that it can be removed
}

test_closed_parent_of_the_install_directory_is_named() {
    healthy_system
    chmod 700 root/opt/apps/com.zrk.uoskesta/files
    chmod 000 root/opt/apps
    as_an_ordinary_user
    finding install-directory problem 'root/opt/apps is closed to this user'
    mends install-directory 'chmod a\+rx .*'
    chmod -R u+w root # so that it can be removed
}

test_superuser_sees_that_others_are_kept_out() {
    healthy_system
    chmod 750 "root/$directory"
    diagnose() { as_superuser "$ukey_command" doctor --root root "$@"; }
    finding install-directory warning 'files/bin is closed to ordinary users'
    mends install-directory 'chmod a\+rx .*'
}

test_file_in_the_way_of_the_install_directory_is_told() {
    healthy_system
    rm -r root/opt
    touch root/opt
    finding install-directory problem 'root/opt is no folder'
    expect_matches "remedy" 'mv root/opt root/opt.aside' "$(<out)"
}

test_place_that_everybody_may_change_is_a_problem() {
    local place
    healthy_system
    for place in opt/apps "$directory" "$directory/libKestaZRK.so" "$directory/libR7Token_KESTA.so"; do
        chmod o+w "root/$place"
        finding install-directory.writable problem "everybody may change what clients run: root/$place\""
        mends install-directory.writable 'chmod o-w [^;]*'
    done
    chmod 1777 root/opt # as in /tmp, nobody removes what is another's
    ends 0 diagnose
    chmod 1777 "root/$directory"
    finding install-directory.writable problem 'everybody'
}

# owned OWNER: the machine as it is, with the maker's libraries in a folder of that owner.
owned() {
    need bwrap
    cp -r "$KESTA_FIXTURES/complete" own
    chmod 755 "$scratch" own
    if ((EUID == 0)); then chown -R "$1" own; fi
    diagnose() {
        bwrap --dev-bind / / --tmpfs /opt --dir "/$directory" --bind own "/$directory" \
            "$ukey_command" doctor --no-key "$@"
    }
}

test_install_directory_of_another_owner_is_a_warning() {
    owned 1234:0
    finding install-directory.owner warning "not the superuser's.*: .*files/bin"
    expect_matches "remedy" "chown root: .*/$directory" "$(<out)"
    ((EUID != 0)) || chown -R 0:0 own
    ((EUID != 0)) || [[ -z $(remedy install-directory.owner) ]] || fail "still there" "$(<found)"
}

test_install_directory_of_a_group_is_a_warning() {
    owned 0:1234
    chmod g+w own
    finding install-directory.group warning "a group may change .*files/bin"
    chmod g-w own # as the remedy says
    expect_matches "remedy" "chmod g-w /$directory" "$(<out)"
    [[ -z $(remedy install-directory.group) ]] || fail "still there" "$(<found)"
}

test_package_that_is_installed_is_installed_again() {
    healthy_system
    mkdir -p root/var/lib/dpkg/info
    printf '%s\n' /. /opt "/$directory/libKestaZRK.so" >root/var/lib/dpkg/info/com.zrk.uoskesta.list
    echo /usr/lib/libfixture_helper.so >root/var/lib/dpkg/info/helper:arm64.list
    rm "root/$directory/libKestaZRK.so"
    finding token-library.present problem 'apt-get install --reinstall com.zrk.uoskesta'
    cp "$KESTA_FIXTURES/dependent/libKestaZRK.so" "root/$directory/"
    finding token-library.dependencies problem 'apt-get install --reinstall helper:arm64'
    rm root/var/lib/dpkg/info/helper:arm64.list
    finding token-library.dependencies problem 'apt-file search libfixture_helper.so'
}

test_software_key_is_known_and_asks_for_no_USB_device() {
    healthy_system
    echo KESTA_SOFTKEY_HOME >>"root/$directory/libKestaZRK.so"
    rm -r "root/$directory/KeyWarden" root/sys root/etc/udev
    finding software-key fine "stands in for the maker's libraries"
    verdict '^All is well: '
    truncate -s -19 "root/$directory/libKestaZRK.so"
    finding companions warning KeyWarden
    finding usb.device warning 'no device'
}

# ---- The log

test_log_that_cannot_be_written_is_a_warning() {
    healthy_system
    mkdir "root/$log"
    finding log.writable warning 'no plain file'
}

test_log_of_another_user_is_a_warning_that_names_the_owner() {
    healthy_system
    # A file of root's that every machine has, and that nobody else writes.
    ln -s /etc/passwd "root/$log"
    chmod a+rw root/dev/bus/usb/001/007
    as_an_ordinary_user
    finding log.writable warning 'belongs to root'
}

test_log_folder_that_is_missing_is_a_warning() {
    healthy_system
    rmdir root/tmp
    finding log.writable warning 'cannot be created'
}

test_log_size_is_told() {
    healthy_system
    truncate -s 5000000 "root/$log"
    finding log.writable fine '4 MiB'
}

test_log_near_its_limit_is_a_warning() {
    healthy_system
    truncate -s 100000000 "root/$log"
    finding log.size warning '95 MiB of 100 MiB'
}

test_log_beyond_its_limit_is_a_warning() {
    healthy_system
    truncate -s 104857600 "root/$log"
    finding log.size warning 'of 100 MiB'
    truncate -s 104857601 "root/$log"
    finding log.size warning 'the next record deletes'
}

test_absent_usb_device_is_a_warning() {
    healthy_system
    echo 0302 >root/sys/bus/usb/devices/1-2/idProduct
    finding usb.device warning 'no device 2E5A:0301'
}

test_usb_device_is_found_in_either_case() {
    healthy_system
    echo 2E5A >root/sys/bus/usb/devices/1-2/idVendor
    finding usb.device fine '2E5A:0301 at 1-2'
}

test_missing_usb_node_is_a_problem() {
    healthy_system
    rm root/dev/bus/usb/001/007
    finding usb.node problem '001/007: No such file'
}

test_closed_usb_node_is_a_problem() {
    healthy_system
    chmod 000 root/dev/bus/usb/001/007
    chmod 777 root/tmp
    as_an_ordinary_user
    finding usb.node problem 'may not be opened'
}

test_log_holds_key_texts_and_is_never_opened_to_all() {
    healthy_system
    ln -s /etc/passwd "root/$log"
    chmod a+rw root/dev/bus/usb/001/007
    chmod 1777 root/tmp
    as_an_ordinary_user
    finding log.writable warning 'cannot be written'
    grep -q 'chmod a+w' out && fail "it opens the log" "$(<out)"
    mends log.writable 'sudo install -m 600 .*|install -m 600 .*'
    [[ ! -e root/$log ]] || fail "the log is still there"
}

test_link_that_leads_nowhere_in_place_of_the_log_is_told() {
    healthy_system
    ln -s nowhere/else "root/$log"
    finding log.writable warning 'is a link that leads nowhere'
    mends log.writable 'rm .*'
}

test_log_folder_that_is_closed_is_opened_as_tmp_is() {
    healthy_system
    chmod a+rw root/dev/bus/usb/001/007
    chmod 555 root/tmp
    as_an_ordinary_user
    finding log.writable warning 'cannot be created: Permission denied'
    mends log.writable 'chmod 1777 .*'
}

test_lack_of_room_for_the_log_is_told() {
    need bwrap
    healthy_system
    diagnose() {
        bwrap --dev-bind / / --size 8192 --tmpfs "$scratch/root/tmp" \
            bash -c 'head -c 100000 /dev/zero >root/tmp/full 2>/dev/null; "$@"' bash \
            "$ukey_command" doctor --root root "$@"
    }
    finding log.room warning 'no room is left in root/tmp'
    expect_matches "remedy" 'du -xh root/tmp' "$(<out)"
}

test_owner_from_outside_of_a_user_namespace_is_not_called_nobody() {
    need bwrap
    healthy_system
    if ((EUID == 0)); then
        touch "root/$log"
        chown 1234 "root/$log"
    else
        ln -s /etc/passwd "root/$log"
    fi
    diagnose() {
        bwrap --unshare-user --uid 1000 --gid 1000 --dev-bind / / "$ukey_command" doctor --root root "$@"
    }
    finding log.writable warning 'belongs to somebody outside of this user namespace'
}

# ---- The USB bus

test_several_keys_on_the_bus_are_a_warning_unless_one_is_named() {
    healthy_system
    cp -r root/sys/bus/usb/devices/1-2 root/sys/bus/usb/devices/1-3
    finding usb.several warning '2 keys are on the bus'
    ends 0 diagnose --serial K1
    grep -q 'keys are on the bus' out && fail "it warns still" "$(<out)"
    return 0
}

test_missing_udev_rule_is_printed() {
    healthy_system
    rm root/etc/udev/rules.d/*
    echo '# ATTR{idVendor}=="2e5a" is a key' >root/etc/udev/rules.d/50-others.rules
    diagnose() { as_superuser "$ukey_command" doctor --root root "$@"; }
    finding usb.rule warning 'no rule names 2E5A:0301'
    expect_matches "rule" 'SUBSYSTEM=="usb", ATTR\{idVendor\}=="2e5a", ATTR\{idProduct\}=="0301", TAG\+="uaccess"' "$(<out)"
    mends usb.rule 'echo .*'
    expect_matches "file" 'uaccess' "$(<root/etc/udev/rules.d/70-kesta-ukey.rules)"
}

test_closed_node_is_answered_with_the_rule_or_its_name() {
    healthy_system
    chmod 000 root/dev/bus/usb/001/007
    chmod 777 root/tmp
    as_an_ordinary_user
    finding usb.node problem 'there is a rule in root/etc/udev/rules.d/60-maker.rules'
    rm root/etc/udev/rules.d/*
    finding usb.node problem 'may not be opened'
    expect_matches "rule" 'TAG\+="uaccess".* tee root/etc/udev/rules.d/70-kesta-ukey.rules' "$(<out)"
}

# ---- The verdict

test_last_line_is_one_sentence_that_says_how_things_stand() {
    healthy_system
    rm "root/$directory/KeyWarden"
    verdict '^No problem: the files are as they should be, the key was not asked; 1 warning is worth a look\.$'
    rm "root/$directory/libR7Token_KESTA.so"
    verdict '^2 problems and 1 warning: begin with the remedy for the event library\.$'
}

run_claims "$@"
