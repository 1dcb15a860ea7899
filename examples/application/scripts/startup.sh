#!/bin/sh
/mnt/user/recipe-board/bin/recipe-board
