#!/bin/sh
# Gives the user a configuration, and leaves the one that is there.
etc=/mnt/user/recipe-board/etc
[ -e "$etc/recipe-board.conf" ] || cp "$etc/default.conf" "$etc/recipe-board.conf"
