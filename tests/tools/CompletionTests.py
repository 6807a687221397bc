"""What zsh and fish offer; bash is in UsageTests."""

import os
import re
import shutil
import subprocess

from support import CommandTestCase, run

TOOL = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../tools/kxmd"))
ACTIONS = (("cover", "extract"), ("cover", "remove"), ("cover", "add"))

# Takes the place of what draws the menus: prints what would be in them.
ZSH = """
    _arguments() { shift; print -rl -- ${@/\\[*\\]/ } }
    _describe() { print -rl -- ${${(P@)2}/:*/} }
    fpath=($1); autoload -Uz _kxmd; shift; words=("$@"); CURRENT=$#words; _kxmd
    """


class CompletionTests(CommandTestCase):
    def shell(self, name, *arguments):
        """What a shell prints, without the user's own configuration."""
        program = shutil.which(name)
        if not program:
            self.skipTest(f"there is no {name}")
        environment = {**os.environ, "HOME": self.folder, "XDG_CONFIG_HOME": self.folder, "XDG_DATA_HOME": self.folder}
        finished = subprocess.run([program, *arguments], cwd=self.folder, env=environment, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, check=False)
        self.assertEqual((finished.returncode, finished.stderr), (0, b""), arguments)
        return finished.stdout.decode().splitlines()

    def offered_by_fish(self, *words):
        script = f"source {TOOL}/kxmd.fish; complete -C (string join ' ' -- $argv)"
        return {line.split("\t")[0] for line in self.shell("fish", "--no-config", "-c", script, "kxmd", *words)}

    def specs_of_zsh(self, *words):
        return self.shell("zsh", "-f", "-c", ZSH, "zsh", TOOL, "kxmd", *words)

    def offered_by_zsh(self, *words):
        """Names of subcommands and options; a line of an option may begin with those that it excludes."""
        lines = (re.sub(r"^(\([^)]*\)|\*(?=-))", "", line) for line in self.specs_of_zsh(*words))
        return {line.split()[0] for line in lines if re.match(r"[a-z-]", line)}

    def told_by_help(self, *words):
        """Subcommands and options."""
        text = run(*words, "--help").out.decode()
        pairs = re.findall(r"^  (--?[a-z-]+)(?:,(--[a-z-]+))?", text, re.MULTILINE)
        names = re.findall(r"^  ([a-z][a-z-]*) ", text, re.MULTILINE)
        return set(names), {option for pair in pairs for option in pair if option}

    def test_script_of_bash_can_be_read(self):
        self.assertEqual(self.shell("bash", "-n", f"{TOOL}/kxmd.bash-completion"), [])

    def test_script_of_zsh_can_be_read(self):
        self.assertEqual(self.shell("zsh", "-n", f"{TOOL}/_kxmd"), [])

    def test_script_of_fish_can_be_read(self):
        self.assertEqual(self.shell("fish", "--no-config", "-n", f"{TOOL}/kxmd.fish"), [])

    def assert_subcommands(self, offered):
        names, _ = self.told_by_help()
        self.assertIn("doctor", names)
        self.assertEqual(offered(""), names)
        actions, _ = self.told_by_help("cover")
        self.assertEqual(actions, {action for _, action in ACTIONS})
        self.assertEqual(offered("cover", ""), actions)
        self.assertEqual(offered("-q", "cover", ""), actions)

    def test_fish_knows_the_subcommands(self):
        self.assert_subcommands(self.offered_by_fish)

    def test_zsh_knows_the_subcommands(self):
        self.assert_subcommands(self.offered_by_zsh)

    def assert_options(self, offered):
        names, _ = self.told_by_help()
        for words in ((), *((name,) for name in names), *ACTIONS):
            _, options = self.told_by_help(*words)
            self.assertEqual(offered(*words, "-"), options, words)

    def test_fish_knows_the_options_of_each_subcommand(self):
        self.assert_options(self.offered_by_fish)

    def test_zsh_knows_the_options_of_each_subcommand(self):
        self.assert_options(self.offered_by_zsh)

    def test_fish_offers_files_where_they_are_wanted(self):
        self.write("song.mp3", b"")
        for words in (("info",), ("composite", "-s", "1x1", "-o"), ("cache-name", "--file"), ("cover", "add", "a"),
                      ("clean",)):
            self.assertEqual(self.offered_by_fish(*words, "so"), {"song.mp3"}, words)
        for words in (("cache-name",), ("thumbnail", "-s"), ("prepare", "-j"), ("prepare", "--to"), ("cover",),
                      ("doctor",)):
            self.assertEqual(self.offered_by_fish(*words, "so"), set(), words)

    def test_zsh_offers_files_where_they_are_wanted(self):
        for words in (("info",), ("prepare",), ("cache-name", "--file"), ("cover", "add", "a"), ("clean",)):
            self.assertIn("*:file:_files", self.specs_of_zsh(*words, "-"), words)
        for words in (("cache-name",), ("doctor",)):
            self.assertNotIn("*:file:_files", self.specs_of_zsh(*words, "-"), words)

    def test_fish_offers_sizes_and_formats(self):
        self.assertIn("256x256", self.offered_by_fish("icon", "-s", ""))
        self.assertEqual(self.offered_by_fish("prepare", "--playlist-format", ""), {"m3u", "m3u8"})

    def test_zsh_offers_sizes_and_formats(self):
        text = "\n".join(self.specs_of_zsh("icon", "-") + self.specs_of_zsh("prepare", "-"))
        self.assertRegex(text, r"--size :size:\([0-9x ]*\b256x256\b")
        self.assertIn("--playlist-format :format:(m3u m3u8)", text)
