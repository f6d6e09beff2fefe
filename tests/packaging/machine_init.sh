#!/bin/sh
# SPDX-License-Identifier: MIT
# The first program of a test machine (machine.py): makes the directory $1 its root, as a kernel and an initial RAM disk would, and
# hands over to systemd. Runs in mount, process, host name and cgroup namespaces of its own, as process 1, and in the network
# namespace that is to be the machine's.
set -e
root="$1"
mount --make-rprivate /
mount --bind "$root" "$root"
cd "$root"

mount -t proc proc proc
# The kernel's settings are this machine's too, so that systemd must not apply Debian's to them.
mount --bind proc/sys proc/sys
mount -o remount,bind,ro proc/sys
mount -t sysfs sysfs sys
mount -t cgroup2 cgroup2 sys/fs/cgroup
mount -t tmpfs -o mode=755 tmpfs run
mount -t tmpfs -o mode=1777 tmpfs tmp
mount -t tmpfs -o mode=755 tmpfs dev
for device in null zero full random urandom tty; do
  : >dev/$device
  mount --bind /dev/$device dev/$device
done
mkdir dev/pts dev/shm
mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts dev/pts
mount -t tmpfs tmpfs dev/shm
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
ln -s /proc/self/fd/0 dev/stdin
ln -s /proc/self/fd/1 dev/stdout
ln -s /proc/self/fd/2 dev/stderr
# systemd listens to udev only if it finds udev's socket when it starts, or a device file system that we must not have.
mkdir -p run/udev
: >run/udev/control

mkdir -p mnt
pivot_root . mnt
umount -l /mnt
exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 /lib/systemd/systemd --log-target=journal
