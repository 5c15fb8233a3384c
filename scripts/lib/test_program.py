"""Runs a test program in a sandbox."""

import hashlib
import os
import shlex
import subprocess

MEMORY = 4 << 30  # limit in bytes: for a mutant that allocates without end
TEMPORARY_FILES = '1g'  # size of /tmp: for a mutant that writes without end

# Private process and mount namespaces, and a private /tmp. All processes, mounts and files of the
# program end with the shell, which is process 1 of the namespace. The kernel kills the shell when the
# thread that started it ends, also when this script is killed.
SANDBOX = ['setpriv', '--pdeathsig', 'KILL', 'unshare', '--mount', '--pid', '--fork', '--kill-child',
           '--mount-proc', *([] if os.geteuid() == 0 else ['--map-root-user']),
           'sh', '-c', f'mount -t tmpfs -o size={TEMPORARY_FILES} none /tmp || exit 125; "$@"; exit $?', 'sh',
           'prlimit', f'--data={MEMORY}', '--core=0']


def digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


class Program:
    """A test program: its command, and the contents and run time of the unchanged program."""

    def __init__(self, path, arguments):
        self.path = path
        self.command = [f'./{path.name}', *map(str, arguments)]
        self.contents = path.read_bytes()
        self.digest = digest(path)
        self.seconds = 0.0

    def contains(self, sources):
        """True if the symbol table names one of these source files."""
        return any(f'\0{source}\0'.encode() in self.contents for source in sources)

    def run(self, limit):
        """Returns `passed`, `failed`, or `timed out` after `limit` seconds."""
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
