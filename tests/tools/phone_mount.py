"""File systems that collections are copied to, for tests to mount: a phone as a desktop shows it, and a card.

Run as a program, it serves the phone's: fusepy is there for the system's own Python only."""

import contextlib
import errno
import json
import os
import shutil
import subprocess
import sys
import time
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"


class Phone:
    """A mounted phone: `path` is where, `backing` the folder that holds its files."""

    def __init__(self, path, backing, control):
        self.path, self.backing, self._control = path, backing, control

    def unplug(self):
        """Lets every call fail from now on."""
        self._set({"unplugged": True})

    def unplug_after(self, count):
        """Lets every call fail once `count` bytes more were to be written."""
        self._set({"unplugs_after": count})

    def fail_after(self, count):
        """Lets every write fail once `count` bytes more were to be written, and nothing else."""
        self._set({"fails_after": count})

    def _set(self, trouble):
        with open(self._control + ".new", "w", encoding="utf-8") as file:
            json.dump(trouble, file)
        os.rename(self._control + ".new", self._control)


@contextlib.contextmanager
def phone(folder, capacity=None, renames=False, replaces=True):
    """Mounts a phone within `folder`: a file system in user space that knows no renames, links, permissions and times
    to set, and tells times in even seconds. It has room for `capacity` bytes. With `renames` it renames, over files
    only if it `replaces`."""
    _require_fuse()
    if subprocess.run([SYSTEM_PYTHON, "-c", "import fusepy"], stderr=subprocess.DEVNULL).returncode:
        raise unittest.SkipTest("there is no fusepy for the system's Python")
    backing, control = os.path.join(folder, "phone-files"), os.path.join(folder, "phone-trouble")
    path = os.path.join(folder, "phone")
    os.mkdir(backing)
    os.mkdir(path)
    server = subprocess.Popen(
        [SYSTEM_PYTHON, "-B", os.path.abspath(__file__), backing, path, control, str(capacity or 0),
         str(int(renames)), str(int(replaces))], stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
    try:
        _wait_for_mount(path, server)
        yield Phone(path, backing, control)
    finally:
        _unmount(path)
        try:
            server.wait(20)
        except subprocess.TimeoutExpired:
            server.kill()
            server.wait()
        server.stderr.close()
        os.rmdir(path)
        shutil.rmtree(backing)
        with contextlib.suppress(FileNotFoundError):
            os.remove(control)


@contextlib.contextmanager
def exfat_card(folder, megabytes=64):
    """Mounts a new exFAT file system of so many megabytes within `folder`; gives its path."""
    _require_fuse()
    for program in ("mkfs.exfat", "losetup", "mount.exfat-fuse"):
        if not shutil.which(program, path=_path_of_administrators()):
            raise unittest.SkipTest(f"there is no {program}")
    if os.geteuid() != 0:
        raise unittest.SkipTest("only root makes loop devices")
    image, path = os.path.join(folder, "card.img"), os.path.join(folder, "card")
    with open(image, "wb") as file:
        file.truncate(megabytes << 20)
    _run("mkfs.exfat", image)
    os.mkdir(path)
    device = _run_or_skip("losetup", "--find", "--show", image).strip()
    try:
        try:
            _run_or_skip("mount.exfat-fuse", device, path)
        finally:
            _run("losetup", "--detach", device)  # Takes effect once it is not mounted any more.
        yield path
    finally:
        _unmount(path)
        os.rmdir(path)
        _wait_until_free(image)
        os.remove(image)


def _path_of_administrators():
    return os.environ.get("PATH", "") + ":/usr/sbin:/sbin"


def _run(*command):
    return subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env={**os.environ, "PATH": _path_of_administrators()}).stdout.decode()


def _run_or_skip(*command):
    try:
        return _run(*command)
    except subprocess.CalledProcessError as error:
        raise unittest.SkipTest(f"{command[0]} is refused: {error.stderr.decode().strip()}")


def _require_fuse():
    if not os.path.exists("/dev/fuse"):
        raise unittest.SkipTest("there are no file systems in user space here")


def _wait_for_mount(path, server):
    for _ in range(500):
        if os.path.ismount(path):
            return
        if server.poll() is not None:
            raise unittest.SkipTest("the mount is refused: " + server.stderr.read().decode().strip()[-200:])
        time.sleep(0.02)
    raise AssertionError("the phone does not come up")


def _is_mounted(path):
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as mounts:
        return any(line.split()[4] == os.path.realpath(path) for line in mounts)


def _unmount(path):
    for command in (["umount", path], ["fusermount3", "-u", path], ["umount", "--lazy", path]):
        if not _is_mounted(path):
            return
        with contextlib.suppress(FileNotFoundError):
            subprocess.run(command, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if _is_mounted(path):
        raise AssertionError(f"{path} stays mounted")


def _wait_until_free(image):
    """The helper that serves the card lets go of the loop device after the mount is gone."""
    for _ in range(500):
        if not _run("losetup", "--associated", image):
            return
        time.sleep(0.02)
    raise AssertionError(f"{image} stays a loop device")


# The program.

def serve(backing, path, control, capacity, renames, replaces):
    import ctypes
    import signal
    import fusepy

    # Whoever mounted it may be killed; the mount goes with this process.
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG

    class Files(fusepy.Operations):
        use_ns = True
        readlink = link = mknod = None
        getxattr = setxattr = listxattr = removexattr = None

        written = 0  # Since there is trouble.

        def __call__(self, operation, path, *arguments):
            # A file's release and the end of the mount have nobody to tell.
            if operation not in ("init", "destroy", "release", "releasedir"):
                self.make_trouble(operation, len(arguments[0]) if operation == "write" else 0)
            try:
                return getattr(self, operation)(backing + path, *arguments)
            except OSError as error:
                raise fusepy.FuseOSError(error.errno)

        def make_trouble(self, operation, count):
            try:
                with open(control, encoding="utf-8") as file:
                    trouble = json.load(file)
            except FileNotFoundError:
                return
            self.written += count
            is_unplugged = "unplugged" in trouble or self.written > trouble.get("unplugs_after", self.written)
            if is_unplugged or (count and self.written > trouble.get("fails_after", self.written)):
                self.refuse(errno.EIO)

        def refuse(self, error):
            raise fusepy.FuseOSError(error)

        def used(self):
            return sum(os.path.getsize(os.path.join(where, name))
                       for where, _, names in os.walk(backing) for name in names)

        def require_room(self, path, length):
            more = length - os.path.getsize(path)
            if capacity and more > 0 and self.used() + more > capacity:
                self.refuse(errno.ENOSPC)

        def init(self, path):
            pass

        def access(self, path, mode):
            os.stat(path)
            if mode & os.W_OK:  # As some shares say where their server takes what is written.
                self.refuse(errno.EACCES)

        def getattr(self, path, file=None):
            status = os.lstat(path)
            kind = 0o040755 if os.path.isdir(path) else 0o100644
            seconds = status.st_mtime_ns // 2_000_000_000 * 2_000_000_000
            return {"st_mode": kind, "st_nlink": 1, "st_size": status.st_size, "st_uid": os.getuid(),
                    "st_gid": os.getgid(), "st_atime": seconds, "st_mtime": seconds, "st_ctime": seconds}

        def readdir(self, path, file):
            return [".", "..", *os.listdir(path)]

        def statfs(self, path):
            block = 512
            free = max(0, capacity - self.used()) // block if capacity else 1 << 30
            return {"f_bsize": block, "f_frsize": block, "f_blocks": capacity // block if capacity else 1 << 31,
                    "f_bfree": free, "f_bavail": free, "f_namemax": 255}

        def create(self, path, mode, info=None):
            return os.open(path, os.O_RDWR | os.O_CREAT | os.O_EXCL, 0o600)

        def open(self, path, flags):
            return os.open(path, flags & (os.O_ACCMODE | os.O_TRUNC))

        def read(self, path, size, offset, file):
            return os.pread(file, size, offset)

        def write(self, path, content, offset, file):
            self.require_room(path, offset + len(content))
            return os.pwrite(file, content, offset)

        def truncate(self, path, length, file=None):
            self.require_room(path, length)
            os.truncate(path, length)

        def release(self, path, file):
            os.close(file)

        def mkdir(self, path, mode):
            os.mkdir(path)

        def rmdir(self, path):
            os.rmdir(path)

        def unlink(self, path):
            os.unlink(path)

        def rename(self, old, new):
            new = backing + new
            if not renames:
                self.refuse(errno.ENOSYS)
            if not replaces and os.path.exists(new):
                self.refuse(errno.EEXIST)
            os.rename(old, new)

        def symlink(self, path, target):
            self.refuse(errno.EPERM)

        def chmod(self, path, mode):
            self.refuse(errno.EPERM)

        def chown(self, path, user, group):
            self.refuse(errno.EPERM)

        def utimens(self, path, times=None):
            self.refuse(errno.ENOSYS)

    fusepy.FUSE(Files(), path, foreground=True, nothreads=True, fsname="phone", big_writes=True)


if __name__ == "__main__":
    serve(*sys.argv[1:4], *map(int, sys.argv[4:]))
