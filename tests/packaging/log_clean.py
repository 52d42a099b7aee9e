#!/usr/bin/env python3
"""Goal: the timer's command removes the right logs and no other file. Method: log folders of the test's own, with files
whose age and size are set, and what is left of them after the real command.

usage: log_clean.py PATH_OF_LOG_CLEAN
"""
import os
import re
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND = sys.argv.pop()
DAY = 86400


class LogClean(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="orv-logs-", dir="/tmp")
        self.addCleanup(self.folder.cleanup)
        self.logs = os.path.join(self.folder.name, "my data", "Data", "Logs")
        os.makedirs(self.logs)
        self.config = os.path.join(self.folder.name, "log-clean.conf")
        self.settings = os.path.join(self.folder.name, "OrvPhoneSystem.ini")

    def file(self, name, days, size=10):
        path = os.path.join(self.logs, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.truncate(size)
        when = time.time() - days * DAY
        os.utime(path, (when, when))

    def log(self, number, days, size=10, folder=None):
        folder = f"Backup/2026{number:04d}/" if folder is None else folder
        self.file(f"{folder}OrvAudioProvider.2026-01-01.{number:06d}.log", days, size)

    def clean(self, config="", *more, code=0):
        with open(self.config, "w", encoding="utf-8") as file:
            file.write(config)
        result = subprocess.run([COMMAND, "--config", self.config, "--settings", self.settings, *more], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result.stdout if code == 0 else result.stderr

    def left(self):
        """The numbers of the logs that are there."""
        numbers = []
        for _, _, names in os.walk(self.logs):
            numbers += [int(name.split(".")[2]) for name in names if name.startswith("OrvAudioProvider")]
        return sorted(numbers)

    def test_logs_older_than_the_age_go(self):
        self.log(1, 31)
        self.log(2, 29)
        self.clean("MAX_AGE_DAYS=30\n", "--folder", self.logs)
        self.assertEqual(self.left(), [2])

    def test_without_a_configuration_it_is_thirty_days_and_two_thousand_megabytes(self):
        self.log(1, 30.1)
        self.log(2, 29.9)
        self.log(3, 3, 900_000_000)
        self.log(4, 2, 900_000_000)
        self.log(5, 1, 900_000_000)
        self.clean("", "--folder", self.logs)
        self.assertEqual(self.left(), [4, 5])

    def test_the_oldest_go_first_until_the_rest_is_below_the_size(self):
        for number in range(1, 6):
            self.log(number, 10 - number, 600_000)
        said = self.clean("MAX_TOTAL_MB=2\n", "--folder", self.logs)
        self.assertEqual(self.left(), [3, 4, 5])
        order = [int(line.split(".")[-2]) for line in said.splitlines()]
        self.assertEqual(order, [1, 2])

    def test_exactly_the_size_stays(self):
        self.log(1, 2, 1_000_000)
        self.log(2, 1, 1_000_000)
        self.clean("MAX_TOTAL_MB=2\n", "--folder", self.logs)
        self.assertEqual(self.left(), [1, 2])

    def test_zero_takes_a_limit_away(self):
        self.log(1, 4000, 3_000_000_000)
        self.log(2, 1)
        self.clean("MAX_AGE_DAYS=0\nMAX_TOTAL_MB=0\n", "--folder", self.logs)
        self.assertEqual(self.left(), [1, 2])

    def test_the_log_being_written_stays_whatever_its_age_and_size(self):
        self.log(1, 90, 5_000_000, folder="")
        self.log(2, 80, 5_000_000, folder="")
        self.log(3, 1)
        self.clean("MAX_AGE_DAYS=30\nMAX_TOTAL_MB=1\n", "--folder", self.logs)
        # 1 was left by a crash; 2 is the newest of its folder.
        self.assertEqual(self.left(), [2, 3])

    def test_other_files_stay(self):
        self.file("Backup/20260101/notes.txt", 400)
        self.file("Backup/20260101/orvaudioprovider.log.gz", 400)
        self.log(1, 400, folder="Backup/20260101/")
        self.clean("", "--folder", self.logs)
        self.assertEqual(sorted(os.listdir(self.logs + "/Backup/20260101")), ["notes.txt", "orvaudioprovider.log.gz"])

    def test_the_folder_of_a_day_goes_with_its_last_log(self):
        self.log(1, 400)
        self.log(2, 1)
        self.clean("", "--folder", self.logs)
        self.assertEqual(os.listdir(self.logs + "/Backup"), ["20260002"])

    def test_the_logs_are_where_the_settings_say(self):
        self.log(1, 400)
        with open(self.settings, "w", encoding="utf-8") as file:
            file.write(f'[General]\n appdatapath = "{self.folder.name}/my data/" ; here\n')
        self.clean("")
        self.assertEqual(self.left(), [])

    def test_a_dry_run_removes_nothing(self):
        self.log(1, 400)
        self.assertIn("would remove", self.clean("", "--folder", self.logs, "--dry-run"))
        self.assertEqual(self.left(), [1])

    def test_a_limit_that_is_no_number_is_refused_and_removes_nothing(self):
        self.log(1, 400)
        for text in ("MAX_AGE_DAYS=ten", "MAX_AGE_DAYS=-1", "MAX_TOTAL_MB=1.5", "MAX_TOTAL_MB=9999999999"):
            said = self.clean(text + "\n", "--folder", self.logs, code=2)
            self.assertIn("write a whole number", said)
        self.assertEqual(self.left(), [1])

    def test_a_folder_that_is_not_there_is_no_fault(self):
        self.assertEqual(self.clean("", "--folder", self.logs + "/none"), "")

    def test_help_names_each_option_and_the_version_is_that_of_the_system(self):
        said = self.clean("", "--help")
        for option in ("--config", "--settings", "--folder", "--dry-run", "--version", "Exit codes"):
            self.assertIn(option, said)
        with open(os.path.join(os.path.dirname(COMMAND), "../CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"^project\(.* VERSION (\S+)", file.read(), re.M).group(1)
        self.assertEqual(self.clean("", "--version"), f"log-clean {version}\n")

    def test_an_unknown_argument_is_refused(self):
        self.assertIn("unknown argument --all", self.clean("", "--all", code=2))


if __name__ == "__main__":
    unittest.main()
