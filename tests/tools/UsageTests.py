import os
import re
import subprocess

from support import COMMAND, CommandTestCase, run

SUBCOMMANDS = ("info", "atoms", "frames", "exif", "thumbnail", "composite", "icon", "poster", "cache-name",
               "cover", "clean", "convert", "prepare", "sheet", "doctor")
ACTIONS = (("cover", "extract"), ("cover", "remove"), ("cover", "add"))


class UsageTests(CommandTestCase):
    def test_help(self):
        for flag in ("-h", "--help"):
            result = run(flag)
            self.assertEqual((result.status, result.errors), (0, []))
            for subcommand in SUBCOMMANDS:
                self.assertIn(subcommand, result.out.decode())

    def test_help_of_each_subcommand(self):
        for subcommand in SUBCOMMANDS:
            for flag in ("-h", "--help"):
                result = run(subcommand, flag)
                self.assertEqual((result.status, result.errors), (0, []))
                self.assertIn(f"kxmd {subcommand}", result.out.decode())

    def test_help_of_each_action(self):
        for action in ACTIONS:
            result = run(*action, "--help")
            self.assertEqual((result.status, result.errors), (0, []))
            self.assertIn("kxmd " + " ".join(action), result.out.decode())

    def test_help_lists_commands_and_options_under_headings(self):
        for words, headings in (((), ["Options", "Look into files", "Make pictures of them", "Edit a copy",
                                      "Whole collections", "This machine", "Examples"]),
                                (("prepare",), ["Positionals", "Options", "What is done to files", "Playlists",
                                                "Which files", "Examples"])):
            text = run(*words, "--help").out.decode()
            self.assertEqual(re.findall(r"^(\w.*):$", text, re.MULTILINE), headings)
            self.assertNotIn("\n\n\n", text)

    def test_examples_of_help_are_understood(self):
        """They name files that are not there, which is no wrong usage."""
        environment = {**os.environ, "HOME": self.folder}
        for words in ((), *((name,) for name in SUBCOMMANDS), *ACTIONS):
            _, _, text = run(*words, "--help").out.decode().partition("Examples:\n")
            lines = re.findall(r"^    kxmd (.*?)(?:  .*)?$", text, re.MULTILINE)
            self.assertTrue(lines, words)
            for line in lines:
                self.assertIn(words[0] if words else "kxmd", "kxmd " + line)
                arguments = [word.replace("~", self.folder).replace("/media/phone", self.folder + "/out")
                             for word in line.split()]
                self.assertNotEqual(run(*arguments, cwd=self.folder, env=environment).status, 2, line)

    def test_version(self):
        result = run("--version")
        self.assertEqual((result.status, result.errors), (0, []))
        self.assertRegex(result.out.decode(), r"^kxmd \d+\.\d+\.\d+\n$")

    def test_wrong_usage(self):
        for arguments in ((), ("-q",), ("frobnicate",), ("--frobnicate",), ("info",), ("atoms",),
                          ("frames",), ("info", "--frobnicate", "a"), ("atoms", "a", "b"),
                          ("frames", "a", "b"), ("atoms", "--json", "--paths", "a"),
                          ("info", "-s", "1x1", "a"), ("poster", "--json", "a", "-o", "a.png"),
                          ("cache-name", "--file=a", "-s", "1x1")):
            with self.subTest(arguments=arguments):
                self.assert_usage_error(run(*arguments))

    def test_unknown_subcommand_is_named(self):
        self.assertIn("frobnicate", run("frobnicate").errors[0])

    def test_mistyped_names_are_guessed(self):
        for arguments, meant in ((("thumbnial", "a"), "thumbnail"), (("ifno", "a"), "info"),
                                 (("-q", "prepaer"), "prepare"), (("info", "--jsn", "a"), "--json"),
                                 (("cover", "extrct", "a"), "extract"), (("--vresion",), "--version"),
                                 (("prepare", "a", "--to", "b", "--dry-rnu"), "--dry-run")):
            with self.subTest(arguments=arguments):
                result = run(*arguments)
                self.assert_usage_error(result)
                self.assertTrue(result.errors[0].endswith(f'. Did you mean "{meant}"?'), result.errors)

    def test_nothing_is_guessed_of_what_is_like_nothing(self):
        for arguments in (("frobnicate",), ("if", "a"), ("prepare", "a", "--to", "b", "--dry-abc"),
                          ("info", "--frobnicate", "a"), ("atoms", "a", "info"), ("x",)):
            with self.subTest(arguments=arguments):
                self.assertNotIn("Did you mean", run(*arguments).errors[0])

    def test_closed_standard_output(self):
        for arguments in (("--help",), ("--version",), ("cache-name", "key", "-s", "1x1")):
            with open("/dev/full", "wb") as out:
                self.assertEqual(run(*arguments, stdout=out).status, 1)
            process = subprocess.run([COMMAND, *arguments], stderr=subprocess.PIPE,
                                     preexec_fn=lambda: os.close(1))
            self.assertEqual(process.returncode, 1)

    def completions(self, *words):
        """What is offered for the last of these words."""
        source = os.path.join(os.path.dirname(__file__), "../../tools/kxmd/kxmd.bash-completion")
        script = """
            compopt() { :; }
            __ltrim_colon_completions() { [[ $1 != *:* ]] || COMPREPLY=("${COMPREPLY[@]#"${1%"${1##*:}"}"}"); }
            _get_comp_words_by_ref() {
                words=("${typed[@]}"); cword=$((${#typed[@]} - 1))
                current=${typed[cword]}; previous=${typed[cword - 1]}
            }
            source "$1"; shift; typed=("$@"); _kxmd; printf '%s\\n' "${COMPREPLY[@]}"
            """
        offered = subprocess.run(["bash", "-c", script, "bash", source, "kxmd", *words], cwd=self.folder,
                                 stdout=subprocess.PIPE, check=True).stdout
        return sorted(offered.decode().split())

    def test_completion_knows_the_subcommands(self):
        self.assertEqual(self.completions(""), sorted(self.subcommands_of_help()))

    def test_completion_knows_the_options_of_each_subcommand(self):
        for words in (*((subcommand,) for subcommand in SUBCOMMANDS), *ACTIONS):
            text = run(*words, "--help").out.decode()
            options = re.findall(r"^  (--?[a-z-]+)(?:,(--[a-z-]+))?", text[text.index("Options:"):], re.MULTILINE)
            named = {option for pair in options for option in pair if option}
            self.assertEqual(self.completions(*words, "-"), sorted(named), words)

    def test_completion_knows_the_actions_on_covers(self):
        self.assertEqual(self.completions("cover", ""), sorted(action for _, action in ACTIONS))
        self.assertEqual(self.completions("cover", "r"), ["remove"])

    def test_completion_offers_files_where_they_are_wanted(self):
        self.write("song.mp3", b"")
        for words in (("info",), ("composite", "-s", "1x1", "-o"), ("cache-name", "--file"),
                      ("cache-name", "-s", "1x1", "--composite", "a"),
                      ("prepare", "--to"), ("cover", "add", "a"), ("clean",)):
            self.assertEqual(self.completions(*words, "so"), ["song.mp3"], words)
        for words in (("cache-name",), ("thumbnail", "-s"), ("prepare", "-j"), ("cover",)):
            self.assertEqual(self.completions(*words, "so"), [], words)

    def test_manual_knows_the_subcommands(self):
        with open(os.path.join(os.path.dirname(__file__), "../../docs/kxmd.1")) as page:
            manual = page.read().replace("\\-", "-")
        for words in (*((name,) for name in self.subcommands_of_help() if name != "cover"), *ACTIONS):
            self.assertIn(f".B kxmd {' '.join(words)}\n", manual)

    def subcommands_of_help(self):
        text = run("--help").out.decode()
        found = re.findall(r"^  ([a-z][a-z-]*) ", text, re.MULTILINE)
        self.assertEqual(sorted(found), sorted(SUBCOMMANDS))
        return found
