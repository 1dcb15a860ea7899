# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Records of packages, as the updater leaves them, below the folder panel.

# record NAME VERSION [FOLDER...] [-- FILE...]: writes a record that names folders and files. The
# title is what a JSON text can hold of the name.
record() {
    local LC_ALL=C name=$1 version=$2 folder=panel/var/lib/KxUserPackages/$1
    shift 2
    mkdir -p "$folder"
    # shellcheck disable=SC2016 # the $ of JSON keys
    {
        printf '\xef\xbb\xbf{"$type": "Zt.Plugins.DB_KxUserProject, Plexa",\n'
        printf ' "ModelName": "TP", "OsVersion": "2.0", "PackageVersion": "%s",\n' "$version"
        printf ' "Title": "T %s", "Comment": "C", "Date": "2026/11/21",\n' "${name//[^a-z ]/}"
        printf ' "DB_StepSets": {"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": []}}\n'
    } >"$folder/UserPackage.kx-project"
    {
        printf ' #dir\n'
        while [ $# -gt 0 ] && [ "$1" != -- ]; do
            printf '%s\n' "$1"
            shift
        done
        [ $# -eq 0 ] || shift
        printf '%s\n #file\n' "${folder#panel}"
        [ $# -eq 0 ] || printf '%s\n' "$@"
        printf '%s\n' "${folder#panel}"/{UserPackage.kx-project,installedFile.list}
    } >"$folder/installedFile.list"
}
