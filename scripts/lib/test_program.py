"""A test program, run so that it can leave nothing behind."""

import hashlib
import os
import shlex
import subprocess

MEMORY = 4 << 30  # bytes: for a mutant that allocates without end
TEMPORARY_FILES = '1g'  # for one that writes to /tmp without end

# A process and a mount namespace, and a /tmp, of its own: whatever a program starts, mounts or
# creates there ends with the shell, which is the namespace's first process. All of it ends with the
# thread that has started it, so that a script that is killed leaves nothing, either.
SANDBOX = ['setpriv', '--pdeathsig', 'KILL', 'unshare', '--mount', '--pid', '--fork', '--kill-child',
           '--mount-proc', *([] if os.geteuid() == 0 else ['--map-root-user']),
           'sh', '-c', f'mount -t tmpfs -o size={TEMPORARY_FILES} none /tmp || exit 125; "$@"; exit $?', 'sh',
           'prlimit', f'--data={MEMORY}', '--core=0']


def digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


class Program:
    """What is run and how; what it is when nothing is changed, and how long it takes then."""

    def __init__(self, path, arguments):
        self.path = path
        self.command = [f'./{path.name}', *map(str, arguments)]
        self.contents = path.read_bytes()
        self.digest = digest(path)
        self.seconds = 0.0

    def contains(self, sources):
        """Whether the symbol table names a source file of one of these names."""
        return any(f'\0{source}\0'.encode() in self.contents for source in sources)

    def run(self, limit):
        """`passed`, `failed`, or `timed out` when it has not ended within so many seconds."""
        process = subprocess.Popen([*SANDBOX, *self.command], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   cwd=self.path.parent)
        try:
            return 'failed' if process.wait(limit) else 'passed'
        except subprocess.TimeoutExpired:
            return 'timed out'
        finally:
            process.kill()
            process.wait()

    def command_line(self):
        return f'cd {shlex.quote(str(self.path.parent))} && {shlex.join(self.command)}'
