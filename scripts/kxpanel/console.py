# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The serial console of an emulated panel, on which a shell of root waits."""
import base64
import re
import secrets
import threading

from kxpanel import links
from kxscripts.common import Failed

PATIENCE = 60  # seconds for a command
ASK_AGAIN = 3  # seconds until a shell that has not answered is asked again
LINE = 1000    # characters of a line that every terminal takes
PROMPT = r"(^|\n)[^\n]*# ?$"
SHOWN = 2000   # bytes of the console that tell why something failed
KEPT = 1 << 20  # characters that the console has said and nobody has waited for
FOLDER = "/run/kx-console"
# What a command prints and what the system prints between must never look like an answer.
_ANSWER = r"%s (\d+) ([A-Za-z0-9+/=]*)\."


class ConsoleError(Failed):
    """The shell did not do what it should; the text says what it said last."""


class Console:
    """Speaks to the shell behind a connected socket, which it closes at its end.

    log   the file that keeps all that the console says"""

    def __init__(self, connection, log):
        self._connection = connection
        self._log = open(log, "ab")  # pylint: disable=consider-using-with
        self._news = threading.Condition()
        self._said = ""
        self._over = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        try:
            while data := self._connection.recv(65536):
                self._log.write(data)
                self._log.flush()
                with self._news:
                    text = data.decode("utf-8", "replace").replace("\r", "")
                    self._said = (self._said + text)[-KEPT:]
                    self._news.notify_all()
        except OSError:
            pass
        with self._news:
            self._over = True
            self._news.notify_all()

    def _expect(self, pattern, seconds):
        """Waits for a pattern and forgets all up to its end; returns the match, or None."""
        with self._news:
            self._news.wait_for(lambda: self._over or re.search(pattern, self._said), seconds)
            found = re.search(pattern, self._said)
            if found:
                self._said = self._said[found.end():]
            return found

    def _send(self, line):
        try:
            self._connection.sendall(line.encode() + b"\n")
        except OSError as error:
            self._reader.join()  # what it said last may not have been read yet
            raise ConsoleError(self._why("the panel has ended")) from error

    def _why(self, text):
        with self._news:
            last = self._said[-SHOWN:].strip()
        return f"{text}; the console said:\n{last}" if last else text

    def wait_for_text(self, pattern, seconds):
        """Waits until the console has said something that a regular expression matches, and forgets
        all up to there. Raises ConsoleError when it does not come in time."""
        if not self._expect(pattern, seconds):
            raise ConsoleError(self._why(f"the console did not say '{pattern}' within "
                                         f"{seconds:g} seconds"))

    def wait_for_prompt(self, seconds):
        """Waits until a shell has started. Raises ConsoleError when none does in time."""
        self.wait_for_text(PROMPT, seconds)

    def find_shell(self, seconds):
        """Waits until a shell answers, and makes it a quiet one. Raises ConsoleError.

        Of a panel that starts, wait_for_prompt() first: what comes before somebody reads the serial
        line may block it for good."""
        word = secrets.token_hex(8)
        for _ in range(max(1, int(seconds / ASK_AGAIN))):
            self._send(f'echo "kx-"{word}')  # the shell's echo of this line has the quotes
            if self._expect(f"kx-{word}", ASK_AGAIN):
                break
            if self._over:
                raise ConsoleError(self._why("the panel has ended"))
        else:
            raise ConsoleError(self._why(f"no shell answered within {seconds:g} seconds"))
        # A shell that edits lines would repeat and wrap them; the kernel keeps quiet from here on.
        self._send(f"exec env PS1= PS2= sh -c 'stty -echo; dmesg -n 1; mkdir -p {FOLDER}; exec sh'")
        if self.run("true").status != 0:
            raise ConsoleError(self._why("the shell does not work"))

    def run(self, script, seconds=PATIENCE):
        """Runs a script of the shell to its end, without input; returns it as a Done. Raises
        ConsoleError when that takes longer, or the panel ends first."""
        word = "kx" + secrets.token_hex(8)
        text = base64.b64encode(script.encode()).decode()
        for begin in range(0, len(text), LINE):
            self._send(f"printf %s {text[begin:begin + LINE]} >>{FOLDER}/in")
        self._send(f"base64 -d {FOLDER}/in >{FOLDER}/script; rm {FOLDER}/in; "
                   f"sh {FOLDER}/script </dev/null >{FOLDER}/out 2>&1; "
                   f"echo {word[:2]}''{word[2:]} $? $(base64 -w0 {FOLDER}/out).")
        answer = self._expect(_ANSWER % word, seconds)
        if not answer:
            raise ConsoleError(self._why(
                "the panel has ended" if self._over else
                f"a command has not ended after {seconds:g} seconds: {script.strip()}"))
        return Done(int(answer[1]), base64.b64decode(answer[2]).decode("utf-8", "replace"))

    def check(self, script, seconds=PATIENCE):
        """Runs a script that must succeed; returns what it printed. Raises ConsoleError."""
        done = self.run(script, seconds)
        if done.status != 0:
            raise ConsoleError(f"on the panel a command ended with {done.status}: {script.strip()}\n"
                               f"{done.output}")
        return done.output

    def begin(self, script):
        """Starts a script and does not wait for it; nothing else can be run until it has ended."""
        self._send(script)

    def close(self):
        """Ends the link."""
        links.end(self._connection, self._reader)
        self._log.close()


class Done:
    """How a command ended: its exit `status`, and its `output`, both kinds of it."""

    def __init__(self, status, output):
        self.status = status
        self.output = output

    def __repr__(self):
        return f"status {self.status}, output:\n{self.output}"
