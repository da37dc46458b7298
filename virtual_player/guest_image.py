"""The virtual player's kernel and root file system, made from the arm64 packages that scripts/setup unpacks.

The root file system is an initramfs of two archives: a base that is made once and kept in the cache, and a small
overlay for each start with the programs to run.
"""

import contextlib
import fcntl
import hashlib
import io
import os
import pathlib
import re
import stat
import subprocess
import tarfile

TOP = pathlib.Path(__file__).resolve().parent.parent

# modinfo is where only root's path leads.
SEARCH_PATH = f"{os.environ.get('PATH', os.defpath)}:/usr/sbin:/sbin"

MODULES = ("virtio_pci", "virtio_console", "virtio_gpu", "vhci_hcd", "usbhid", "hid_generic", "evdev", "cuse")

LIBRARIES = "usr/lib/aarch64-linux-gnu"
DIRECTFB = f"{LIBRARIES}/directfb-1.7-7"

# From the packages to the same place in the guest; a directory comes with all that it holds. Libraries that these
# need come by themselves.
FILES = (
    "usr/bin/busybox",
    "usr/bin/udevadm",
    "usr/lib/systemd/systemd-udevd",
    "usr/lib/udev/rules.d/50-udev-default.rules",
    "usr/lib/ld-linux-aarch64.so.1",
    f"{DIRECTFB}/inputdrivers/libdirectfb_keyboard.so",
    f"{DIRECTFB}/inputdrivers/libdirectfb_linux_input.so",
    f"{DIRECTFB}/interfaces/IDirectFBFont/libidirectfbfont_ft2.so",
    f"{DIRECTFB}/systems/libdirectfb_fbdev.so",
    f"{DIRECTFB}/wm/libdirectfbwm_default.so",
    # What our programs link.
    f"{LIBRARIES}/libasan.so.8",
    f"{LIBRARIES}/libboost_chrono.so.1.74.0",
    f"{LIBRARIES}/libboost_thread.so.1.74.0",
    f"{LIBRARIES}/libboost_system.so.1.74.0",
    f"{LIBRARIES}/libboost_atomic.so.1.74.0",
    f"{LIBRARIES}/libdirectfb-1.7.so.7",
    f"{LIBRARIES}/libfmt.so.9",
    f"{LIBRARIES}/libfuse3.so.3",
    f"{LIBRARIES}/libmagic.so.1",
    f"{LIBRARIES}/libstdc++.so.6",
    f"{LIBRARIES}/libubootenv.so.0",
    f"{LIBRARIES}/libubsan.so.1",
    f"{LIBRARIES}/libudev.so.1",
    "usr/share/misc/magic.mgc",
)
FONT = "usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"

# What helps when a part of the packages is not there.
REFETCH = "remove this folder and run scripts/setup"

# udev's rules name groups; device nodes get them by number.
GROUPS = ("root", "tty", "disk", "lp", "audio", "video", "kvm", "render", "input", "dialout", "cdrom", "tape", "sgx",
          "kmem")


class PackageError(Exception):
    """A file is not a Debian package that the player can have."""


class Archive:
    """A cpio archive as the kernel reads it ("newc")."""

    def __init__(self):
        self._chunks = []
        self._directories = set()
        self._inode = 0

    def _add(self, path, mode, data=b"", device=(0, 0)):
        parent = os.path.dirname(path)
        if parent and parent not in self._directories:
            self.add_directory(parent)
        self._inode += 1
        name = path.encode() + b"\0"
        fields = (self._inode, mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(name), 0)
        self._append(b"070701" + b"".join(b"%08X" % field for field in fields) + name)
        self._append(data)

    def _append(self, data):
        self._chunks += (data, bytes(-len(data) % 4))

    def add_directory(self, path):
        if path not in self._directories:
            self._directories.add(path)
            self._add(path, stat.S_IFDIR | 0o755)

    def add_link(self, path, target):
        self._add(path, stat.S_IFLNK | 0o777, os.fsencode(target))

    def add_file(self, path, data, mode=0o644):
        self._add(path, stat.S_IFREG | mode, data)

    def add_package(self, deb):
        """What a Debian package holds; its scripts are not run.

        Raises PackageError when it is none, or one for another machine.
        """
        architecture = _dpkg_deb("--field", str(deb), "Architecture").decode().strip()
        if architecture not in ("all", "arm64"):
            raise PackageError(f"{deb} is for {architecture}, the player is arm64: scripts/package arm64")
        with tarfile.open(fileobj=io.BytesIO(_dpkg_deb("--fsys-tarfile", str(deb)))) as content:
            for member in content:
                path = os.path.normpath(member.name)
                if member.issym():
                    self.add_link(path, member.linkname)
                elif member.isfile():
                    self.add_file(path, content.extractfile(member).read(), member.mode)

    def add_character_device(self, path, major, minor):
        self._add(path, stat.S_IFCHR | 0o600, device=(major, minor))

    def content(self):
        self._add("TRAILER!!!", 0)
        return b"".join(self._chunks)


def _digest(*paths):
    return hashlib.sha256(b"".join(path.read_bytes() for path in paths)).hexdigest()[:16]


def _dpkg_deb(*arguments):
    try:
        return subprocess.run(("dpkg-deb", *arguments), check=True, capture_output=True).stdout
    except subprocess.CalledProcessError as error:
        raise PackageError(error.stderr.decode(errors="replace").strip()) from error


def _output(*command):
    environment = {**os.environ, "PATH": SEARCH_PATH}
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=environment).stdout


class _Packages:
    """The unpacked arm64 packages."""

    def __init__(self, root):
        self.root = root
        self.modules = {path.stem.replace("-", "_"): path for path in root.glob("usr/lib/modules/*/kernel/**/*.ko")}

    def with_needed_libraries(self, files):
        """The paths of `files` and of every library that they need, transitively, links included."""
        found = set()
        pending = [self.root / file for file in files]
        while pending:
            path = pending.pop()
            if path in found:
                continue
            found.add(path)
            if path.is_symlink():
                pending.append(pathlib.Path(os.path.normpath(path.parent / os.readlink(path))))
            elif path.read_bytes()[:4] == b"\x7fELF":
                dynamic = _output("aarch64-linux-gnu-readelf", "-d", str(path))
                for name in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic):
                    pending.append(self.root / LIBRARIES / name)
        return sorted(found)

    def modules_in_loading_order(self, names):
        order = []

        def visit(name):
            path = self.modules.get(name)
            if path is None or path in order:
                return
            for needed in _output("modinfo", "-F", "depends", str(path)).strip().split(","):
                visit(needed.replace("-", "_"))
            order.append(path)

        for name in names:
            if name not in self.modules:
                raise FileNotFoundError(f"{self.root} has no module {name}: {REFETCH}")
            visit(name)
        return order


def _make_base(packages):
    archive = Archive()
    for directory in ("dev", "proc", "run", "sys", "tmp", "var", "usr/bin", "usr/sbin", "usr/lib"):
        archive.add_directory(directory)
    for link in ("bin", "sbin", "lib"):
        archive.add_link(link, f"usr/{link}")
    archive.add_link("var/run", "/run")
    archive.add_character_device("dev/console", 5, 1)
    for path in packages.with_needed_libraries(FILES):
        name = str(path.relative_to(packages.root))
        if path.is_symlink():
            archive.add_link(name, os.readlink(path))
        else:
            archive.add_file(name, path.read_bytes(), path.stat().st_mode & 0o777)
    modules = packages.modules_in_loading_order(MODULES)
    for module in modules:
        archive.add_file(f"usr/lib/modules/{module.name}", module.read_bytes())
    archive.add_file("etc/modules", "".join(f"/usr/lib/modules/{module.name}\n" for module in modules).encode())
    archive.add_file("etc/passwd", b"root:x:0:0:root:/:/bin/sh\n")
    archive.add_file("etc/group", "".join(f"{name}:x:{i}:\n" for i, name in enumerate(GROUPS)).encode())
    archive.add_file("storage/sys/default-font.ttf", (packages.root / FONT).read_bytes())
    archive.add_file("init", (TOP / "virtual_player/guest/init").read_bytes(), 0o755)
    return archive.content()


@contextlib.contextmanager
def _only_maker_in(cache):
    """Waits until no other process makes an image in this cache; one that was killed no longer does."""
    with open(cache / "image.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def kernel_and_base(tell=lambda what: None):
    """The paths of the kernel and of the base archive, which is made now, and told so, if the cache has none.

    Raises FileNotFoundError when scripts/setup has not been run.
    """
    root = pathlib.Path(_output(str(TOP / "scripts/arm64-packages")).rstrip("\n"))
    if not root.is_dir():
        raise FileNotFoundError(f"{root} is missing: run scripts/setup")
    kernel = next(root.glob("boot/vmlinuz-*"), None)
    if kernel is None:
        raise FileNotFoundError(f"{root} has no kernel: {REFETCH}")
    recipe = _digest(pathlib.Path(__file__), TOP / "virtual_player/guest/init")
    base = root.parent / f"{root.name}-guest-{recipe}.cpio"
    if not base.exists():
        tell("making the player's image")
        with _only_maker_in(base.parent):
            if not base.exists():  # nor has another made it meanwhile
                # Of one that was killed the file is still there, and is written anew.
                unfinished = base.parent / "image.unfinished"
                try:
                    unfinished.write_bytes(_make_base(_Packages(root)))
                    os.replace(unfinished, base)
                except BaseException:
                    unfinished.unlink(missing_ok=True)
                    raise
    return kernel, base
