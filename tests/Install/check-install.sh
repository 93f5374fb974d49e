#!/bin/sh
# Installs the build into a scratch prefix, then once more through a DESTDIR staging folder,
# and checks what lands where: the programs, the daemon's unit, bus and polkit files, the
# pictures, the desktop entry, icon and metainfo (validated when the desktop's validators are
# there), and the manifest the daemon's uninstall operation reads.
#
# usage: check-install.sh CMAKE BUILD_DIR SOURCE_DIR DAEMON_BUILT LIBEXECDIR DATADIR UNIT_DIR
# with the daemon's bus name and polkit actions file in QUILLANE_DAEMON_BUS_NAME and
# QUILLANE_POLKIT_ACTIONS_FILE.
set -eu
cmake=$1 build=$2 source=$3 daemon_built=$4 libexec=$5 data=$6 units=$7
bus_name=${QUILLANE_DAEMON_BUS_NAME:?} actions=${QUILLANE_POLKIT_ACTIONS_FILE:?}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# full PREFIX DIR: DIR as installed for PREFIX
full() {
    case $2 in
    /*) echo "$2" ;;
    *) echo "$1/$2" ;;
    esac
}

# check STAGE PREFIX: the tree installed for PREFIX, found under STAGE$PREFIX
check() {
    stage=$1 prefix=$2
    unit=$(full "$prefix" "$units")/quillane-daemon.service
    manifest=$(full "$prefix" "$data")/quillane/install-manifest.txt
    daemon=$(full "$prefix" "$libexec")/quillane-daemon
    dbus=$(full "$prefix" "$data")/dbus-1

    if [ ! -e "$stage$unit" ] && [ "$daemon_built" = 0 ]; then
        echo "SKIP: this build has neither the helper daemon nor its install rules yet"
        exit 77
    fi
    [ -x "$stage$prefix/bin/quillane" ] || fail "no $prefix/bin/quillane"
    # The commands start without the graphical libraries; the tray application is in the
    # module the program loads from where it was installed.
    if command -v readelf >/dev/null &&
        readelf -d "$stage$prefix/bin/quillane" | grep -E 'NEEDED.*Qt6(Gui|Widgets|Multimedia|Svg|Network)'; then
        fail "bin/quillane links a graphical library"
    fi
    # With no desktop to show it on, the module's tray application says so and ends.
    env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$stage$prefix/bin/quillane" \
        >"$scratch/windows" 2>&1 || true
    grep -q "there is no desktop to show the tray application on" "$scratch/windows" ||
        { cat "$scratch/windows"; fail "the installed quillane does not load its windows' module"; }
    if [ "$daemon_built" = 1 ]; then
        [ -x "$stage$daemon" ] || fail "no $daemon"
    fi
    cmp "$source/daemon/dbus/$bus_name.conf" "$stage$dbus/system.d/$bus_name.conf" ||
        fail "bus policy"
    cmp "$source/daemon/polkit/$actions" \
        "$stage$(full "$prefix" "$data")/polkit-1/actions/$actions" ||
        fail "polkit actions"

    grep -qx "ExecStart=$daemon --application $prefix/bin/quillane" \
        "$stage$unit" || fail "the unit does not start $daemon for this installation"
    # The daemon writes nothing of the installation; its stop step removes it, outside the
    # sandbox, from the manifest.
    grep -qx "ExecStopPost=+$daemon --finish-uninstall --manifest $manifest" "$stage$unit" ||
        fail "the unit does not remove the installation in its stop step"
    ! grep -q "^ReadWritePaths=" "$stage$unit" || fail "the unit makes paths writable"
    if command -v systemd-analyze >/dev/null; then
        exposure=$(cd "$scratch" && systemd-analyze security --offline=yes "$stage$unit" 2>/dev/null |
            sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\).*/\1/p')
        awk -v e="${exposure:-99}" 'BEGIN { exit !(e <= 1.5) }' ||
            fail "the unit's exposure is ${exposure:-unknown}, above 1.5"
    fi
    # The bus asks systemd for the unit itself, which needs no enabling, and a bus without
    # systemd runs the unit's own command line.
    activation=$stage$dbus/system-services/$bus_name.service
    grep -qx "Name=$bus_name" "$activation" || fail "activation file"
    grep -qx "BusName=$bus_name" "$stage$unit" || fail "the unit does not own $bus_name"
    grep -qx "SystemdService=${unit##*/}" "$activation" ||
        fail "the activation file does not name the unit ${unit##*/}"
    grep -qx "Exec=$daemon --application $prefix/bin/quillane" "$activation" ||
        fail "the activation file does not run $daemon for this installation"
    ! grep -q "^\[Install\]" "$stage$unit" || fail "the unit asks to be enabled"

    # The pictures where the program looks for them, and what the desktop reads to list it.
    share=$stage$(full "$prefix" "$data")
    for image in MenuIcon Dropbox GoogleDrive OneDrive WelcomeExample LoginItem \
        view-more-symbolic user-trash-symbolic folder-open-symbolic; do
        cmp "$source/Resources/images/$image.svg" "$share/quillane/images/$image.svg" ||
            fail "image $image"
    done
    for icon in icons/hicolor/scalable/apps quillane/icons; do
        cmp "$source/Resources/icons/com.velmoric.Quillane.svg" \
            "$share/$icon/com.velmoric.Quillane.svg" || fail "application icon in $icon"
    done
    desktop=$share/applications/com.velmoric.Quillane.desktop
    metainfo=$share/metainfo/com.velmoric.Quillane.metainfo.xml
    cmp "$source/Resources/linux/com.velmoric.Quillane.desktop" "$desktop" || fail "desktop entry"
    cmp "$source/Resources/linux/com.velmoric.Quillane.metainfo.xml" "$metainfo" ||
        fail "metainfo"
    if command -v desktop-file-validate >/dev/null; then
        desktop-file-validate "$desktop" >"$scratch/validate" 2>&1 ||
            { cat "$scratch/validate"; fail "desktop-file-validate"; }
    fi
    if command -v appstreamcli >/dev/null; then
        # Any error fails; of the warnings, only those about screenshots may stay.
        if ! appstreamcli validate --no-net "$metainfo" >"$scratch/validate" 2>&1; then
            cat "$scratch/validate"
            if grep -q '^E:' "$scratch/validate" ||
                grep '^W:' "$scratch/validate" | grep -qv screenshot ||
                ! grep -q '^W:.*screenshot' "$scratch/validate"; then
                fail "appstreamcli validate"
            fi
        fi
    fi

    # Exactly the installed files.
    find "$stage$prefix" -type f -o -type l | sed "s|^$stage||" | sort >"$scratch/found"
    sort "$stage$manifest" >"$scratch/listed"
    diff "$scratch/found" "$scratch/listed" || fail "the manifest is not the installed files"
}

"$cmake" --install "$build" --prefix "$scratch/prefix" >"$scratch/log" ||
    { cat "$scratch/log"; fail "cmake --install --prefix"; }
check "" "$scratch/prefix"

DESTDIR=$scratch/stage "$cmake" --install "$build" --prefix "$scratch/final" >"$scratch/log" ||
    { cat "$scratch/log"; fail "cmake --install with DESTDIR"; }
[ ! -e "$scratch/final" ] || fail "DESTDIR was ignored"
check "$scratch/stage" "$scratch/final"

echo "PASS"
