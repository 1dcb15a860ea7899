# shellcheck shell=sh
# read_config FILE NAME: the value of a line "NAME = VALUE".
read_config() {
    sed -n "s/^$2 *= *//p" "$1"
}
