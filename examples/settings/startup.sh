#!/bin/sh
/mnt/user/bin/hello
