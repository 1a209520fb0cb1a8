# Environment of every Wine call of the lab. Source it with WINEPREFIX set.
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
export LANG=C.UTF-8
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
