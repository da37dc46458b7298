#!/usr/bin/python3
"""The fuzz targets' seeds, on the processor that the players have: its characters are unsigned, for one."""

import io
import pathlib
import tarfile
import unittest

from guest import RUN_TIMEOUT, GuestTestCase, build_folder

SOURCES = pathlib.Path(__file__).resolve().parents[1] / "fuzz"
RUN_ALL = "cd /tmp && tar -x && for target in *_fuzz; do ./$target seeds/${target%_fuzz} || exit; echo $target; done"


class FuzzSeeds(GuestTestCase):
    BOARDS = ()

    def test_every_target_takes_its_seeds(self):
        folder = build_folder() / "tests/fuzz"
        targets = sorted(folder.glob("*_fuzz"))
        archive = io.BytesIO()
        with tarfile.open(fileobj=archive, mode="w") as tar:
            for path in (*targets, folder / "seeds"):
                tar.add(path, path.name)
        run = self.player.start(["sh", "-c", RUN_ALL])
        run.write(archive.getvalue())
        run.close_input()
        self.assertEqual(run.wait(RUN_TIMEOUT), 0, run.stderr.decode())
        self.assertEqual(run.stdout.decode().split(), [target.name for target in targets])
        self.assertEqual([target.name for target in targets], sorted(path.stem for path in SOURCES.glob("*_fuzz.cpp")))


if __name__ == "__main__":
    unittest.main()
