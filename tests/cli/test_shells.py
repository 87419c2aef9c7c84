"""The completions, asked for in each shell as a person would, and the man page."""

import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from support import SETTINGS, CliTest, table, with_tables

LINUX = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "linux"
COMPLETIONS = LINUX / "completions"
COMMANDS = {"list", "update", "settings", "modes", "signal", "package", "doctor"}


def bash(line):
    """What bash offers for the last word; bash itself splits words at "=" as well."""
    words = [word for word in re.split(r"(=)| ", line) if word is not None]
    script = (
        f'source "{COMPLETIONS / "capso-cli.bash"}"; compopt() {{ :; }}; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
        '_capso_cli; printf "%s\\n" "${COMPREPLY[@]}"'
    )
    return run(["bash", "--norc", "-c", script, "bash", *words])


def fish(line):
    script = f'source "{COMPLETIONS / "capso-cli.fish"}"; complete --do-complete "$argv"'
    return {text.split("\t")[0] for text in run(["fish", "--no-config", "-c", script, line])}


def zsh(line):
    """On a busy machine zsh may take its time: nothing but the line itself means that it is not there yet."""
    for patience in (2, 8, 30):
        offered = zsh_after(line, patience)
        if offered - set(re.findall(r"[\w=.-]+", line)) - {"BEGIN", "READY"}:
            break
    return offered


def zsh_after(line, seconds):
    """zsh completes on a terminal only, so one is made with zsh's own zpty."""
    script = f"""
        zmodload zsh/zpty
        zpty shell 'zsh -f -i'
        zpty -w shell 'PS1=; fpath=({COMPLETIONS} $fpath); autoload -U compinit; compinit -u -D; bindkey "^I" complete-word'
        zpty -w shell 'zstyle ":completion:*" list-colors "" ; zstyle ":completion:*:default" list-prompt ""; LISTMAX=10000; stty -echo cols 400 rows 200'
        zpty -w shell 'list() {{ compstate[list]="list force"; compstate[insert]=; print -r -- "<BEGIN>"; }}; comppostfuncs=(list)'
        zpty -w shell 'print -r -- "<READY>"'
        zpty -r -m shell seen '*<READY>*<READY>*'
        zpty -n -w shell {line!r}$'\\t'
        sleep {seconds}
        zpty -r -t shell text '*'
        while zpty -r -t shell more '*'; do text+=$more; done
        print -r -- "$text"
    """
    text = "\n".join(run(["zsh", "-f", "-c", script]))
    return set(re.findall(r"[\w=.-]+", re.sub(r"\033\[[0-9;?]*[A-Za-z]", " ", text)))


def run(words):
    environment = {**os.environ, "TERM": "dumb", "HOME": "/nonexistent", "LC_ALL": "C.UTF-8"}
    ran = subprocess.run(words, capture_output=True, text=True, env=environment, timeout=60)
    return set(filter(None, ran.stdout.splitlines())) if words[0] != "zsh" else ran.stdout.splitlines()


SHELLS = {"bash": bash, "zsh": zsh, "fish": fish}


@with_tables
class Completions(CliTest):
    def setUp(self):
        super().setUp()
        for name in ("new.fw", "old.fw", "notes.txt"):
            (self.folder / name).touch()
        previous = os.getcwd()
        self.addCleanup(os.chdir, previous)
        os.chdir(self.folder)

    @table(*[(name, name) for name in SHELLS])
    def test_commands(self, shell):
        self.assertLessEqual(COMMANDS, SHELLS[shell]("capso-cli "))

    @table(*[(name, name) for name in SHELLS])
    def test_beginning_of_a_command(self, shell):
        offered = SHELLS[shell]("capso-cli s")
        self.assertLessEqual({"settings", "signal"}, offered)
        self.assertFalse({"list", "update", "doctor"} & offered, offered)

    @table(*[(name, name) for name in SHELLS])
    def test_packages_alone(self, shell):
        for command in ("update", "package"):
            offered = SHELLS[shell](f"capso-cli {command} ")
            self.assertLessEqual({"new.fw", "old.fw"}, offered, command)
            self.assertNotIn("notes.txt", offered)

    @table(*[(name, name) for name in SHELLS])
    def test_options(self, shell):
        offered = SHELLS[shell]("capso-cli update --")
        self.assertLessEqual({"--all", "--unless-version", "--json"}, offered)
        self.assertNotIn("--watch", offered)
        self.assertIn("--watch", SHELLS[shell]("capso-cli signal --"))

    @table(*[(name, name) for name in SHELLS])
    def test_settings(self, shell):
        offered = SHELLS[shell]("capso-cli settings ")
        self.assertLessEqual(set(SETTINGS), {word.split("=")[0] for word in offered})
        switches = SHELLS[shell]("capso-cli settings performance=")
        self.assertEqual({word.split("=")[-1] for word in switches} & {"on", "off"}, {"on", "off"})

    def test_every_option_of_the_program_is_offered(self):
        with concurrent.futures.ThreadPoolExecutor(len(COMMANDS)) as at_once:
            answers = {
                (shell, command): at_once.submit(SHELLS[shell], f"capso-cli {command} --")
                for shell in SHELLS for command in COMMANDS
            }
        for command in COMMANDS:
            ran = subprocess.run([self.cli, command, "--help"], capture_output=True, text=True)
            options = set(re.findall(r"^  (?:-h,)?(--[a-z-]+)", ran.stdout, re.MULTILINE))
            self.assertGreaterEqual(len(options), 3)
            for shell in SHELLS:
                offered = {word for word in answers[shell, command].result() if re.fullmatch("--[a-z-]+", word)}
                self.assertEqual(options, offered, f"{shell}, {command}")


class ManPage(CliTest):
    def test_is_well_formed_and_complete(self):
        page = LINUX / "capso-cli.1"
        self.assertIsNotNone(shutil.which("man"), "man is needed")
        ran = subprocess.run(
            ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", str(page)], capture_output=True, text=True,
            env={**os.environ, "MANROFFSEQ": "", "MANWIDTH": "100", "LC_ALL": "C.UTF-8", "MAN_KEEP_FORMATTING": "0"},
        )
        self.assertEqual(ran.stderr, "")
        text = re.sub(".\b|\033\\[[0-9;]*m", "", ran.stdout)
        for command in COMMANDS:
            self.assertRegex(text, rf"capso-cli {command}")
        for status in range(6):
            self.assertRegex(text, rf"\n +{status} +\S")
        for word in (*SETTINGS, "--json", "--verbose", "--all", "--unless-version", "--watch", "NO_COLOR"):
            self.assertIn(word, text)


