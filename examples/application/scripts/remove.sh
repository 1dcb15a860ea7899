#!/bin/sh
rm -rf /mnt/user/recipe-board
