#!/usr/bin/python3
"""The packages for the player, as scripts/package makes them: padtune's run from one; a program of others, built with
the platform's."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from guest import RUN_TIMEOUT, GuestTestCase, build_folder
from picture import Picture  # from virtual_player, where guest looks

TOP = pathlib.Path(__file__).resolve().parents[2]
BACKGROUND = (0, 0, 17)
GREEN = (0, 255, 0)

WHERE_THEY_BELONG = (
    "/usr/bin/padtune",
    "/usr/bin/portprobe",
    "/usr/bin/padreport",
    "/usr/lib/aarch64-linux-gnu/libvantora_platform_tracepoint.so",
    "/usr/lib/udev/rules.d/60-touch-board.rules",
    "/usr/share/bash-completion/completions/padtune",
    "/usr/share/bash-completion/completions/portprobe",
    "/usr/share/bash-completion/completions/padreport",
    "/usr/share/man/man1/padtune.1.gz",
    "/usr/share/man/man1/portprobe.1.gz",
    "/usr/share/man/man1/padreport.1.gz",
    "/usr/share/man/man5/vantora-player.5.gz",
)

RUN = "padtune --timeout 8 --button 1-11 --output-diagnostics demo --finger-threshold 1-11,40"


def package(name):
    folder = TOP / "build/package/arm64"
    if not folder.is_dir():
        raise unittest.SkipTest("there are no packages: run scripts/package arm64")
    (path,) = folder.glob(f"{name}_*_arm64.deb")
    return path


class InstalledPadtune(unittest.TestCase):
    def test_the_demo_runs_from_the_packages(self):
        script = f"command -v padtune; ls {' '.join(WHERE_THEY_BELONG)}; exec {RUN}"
        with tempfile.TemporaryDirectory() as folder:
            scenario = pathlib.Path(folder, "scenario")
            demo = (TOP / "virtual_player/scenarios/demo").read_text()
            scenario.write_text(demo.replace("final.png", "final.ppm"))
            run = subprocess.run(
                [sys.executable, TOP / "virtual_player/virtual-player", "--build", build_folder(),
                 "--package", package("padtune"), "--package", package("padtune-tracepoint"),
                 "--scenario", scenario, "--", "sh", "-c", script],
                capture_output=True, text=True, timeout=2 * RUN_TIMEOUT, cwd=folder)
            self.assertEqual(run.returncode, 0, run.stderr)
            self.assertEqual(run.stdout.split(), ["/usr/bin/padtune", *sorted(WHERE_THEY_BELONG)])
            self.assertTrue(re.search(r": BT3: .* \*$", run.stderr, re.MULTILINE), run.stderr[-2000:])
            colours = Picture(f"{folder}/final.ppm").colours()
        self.assertIn(BACKGROUND, colours)
        self.assertIn(GREEN, colours)

    def test_a_package_for_another_machine_is_refused_before_booting(self):
        with tempfile.TemporaryDirectory() as folder:
            tree = pathlib.Path(folder) / "tree"
            (tree / "DEBIAN").mkdir(parents=True)
            (tree / "DEBIAN/control").write_text("Package: other\nVersion: 1\nArchitecture: amd64\nMaintainer: x\n"
                                                 "Description: x\n")
            deb = pathlib.Path(folder) / "other.deb"
            subprocess.run(["dpkg-deb", "--build", tree, deb], check=True, stdout=subprocess.DEVNULL)
            run = subprocess.run([TOP / "virtual_player/virtual-player", "--build", build_folder(), "--package", deb,
                                  "--", "true"], capture_output=True, text=True)
        self.assertEqual(run.returncode, 125)
        self.assertEqual(run.stderr.splitlines()[-1],
                         f"virtual-player: {deb} is for amd64, the player is arm64: scripts/package arm64")


class OtherSoftware(GuestTestCase):
    BOARDS = ("KP120",)

    def test_the_example_prints_what_its_port_receives(self):
        with tempfile.TemporaryDirectory() as folder:
            installed, build = f"{folder}/installed", f"{folder}/build"
            subprocess.run(["dpkg-deb", "-x", package("strata-platform-dev"), installed], check=True)
            source = f"{installed}/usr/share/doc/strata-platform-dev/examples"
            for command in (["-G", "Ninja", "-S", source, "-B", build,
                             f"-DCMAKE_TOOLCHAIN_FILE={TOP}/cmake/arm64.cmake",
                             f"-Dstrata-platform_DIR={installed}/usr/lib/aarch64-linux-gnu/cmake/strata-platform"],
                            ["--build", build]):
                made = subprocess.run(["cmake", *command], capture_output=True, text=True)
                self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
            self.player.put(f"{build}/watch_port", "/usr/bin/watch_port")
        run = self.player.start(["watch_port", "TouchBoard-0-GPIO"])
        self.addCleanup(self._end, run)
        self.assertTrue(self.player.wait_for(lambda: b" pins\n" in run.stderr, RUN_TIMEOUT), run.stderr)
        self.player.boards[0].send("touch 3")
        self.assertTrue(self.player.wait_for(lambda: b"pin 2 is 1\n" in run.stdout, RUN_TIMEOUT), run.stdout)
        run.kill()
        self.assertEqual(run.wait(RUN_TIMEOUT), 0, run.stderr)


if __name__ == "__main__":
    unittest.main()
