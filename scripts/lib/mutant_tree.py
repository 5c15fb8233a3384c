"""A copy of the project in which one mutant after another is built and tried."""

import functools
import hashlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import time

OWN_OBJECTS = ('CMakeFiles/daemon.dir/', 'CMakeFiles/trayprobed.dir/',
               'platform/linux/CMakeFiles/platform.dir/')
ARCHIVES = ('libdaemon.a', 'platform/linux/libplatform.a')
MEMORY = 8 << 30  # bytes of address space: for a mutant that allocates without end
BASELINE_LIMIT = 600  # seconds for a program whose duration is not yet known


def digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


class Program:
    """A test program: how it is run, what it is when nothing is changed, how long it takes."""

    def __init__(self, path, arguments):
        self.path = path
        self.command = ['prlimit', f'--as={MEMORY}', '--core=0', path, *arguments]
        self.contents = path.read_bytes()
        self.digest = digest(path)
        self.seconds = 0.0

    def contains(self, sources):
        """Whether the symbol table names a source file of one of these names."""
        return any(f'\0{source}\0'.encode() in self.contents for source in sources)

    def run(self, limit):
        """True when it ends well within so many seconds; whatever it has started ends with it."""
        process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True,
                                   cwd=self.path.parent)
        try:
            return process.wait(limit) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()


class Tree:
    def __init__(self, project, root):
        self.project, self.root = project, root
        self.build = root / 'build/mutants'
        self.under_way = root.with_suffix('.under-way')  # names the file that has been changed

    # ---- making it ----

    def update(self):
        """Makes the sources those of the project; what is the same keeps its time."""
        listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'],
                                cwd=self.project, check=True, capture_output=True, text=True).stdout
        wanted = {name for name in listed.split('\0') if name and (self.project / name).is_file()}
        for name in wanted:
            ours, theirs = self.root / name, self.project / name
            if not ours.is_file() or ours.read_bytes() != theirs.read_bytes():
                ours.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(theirs, ours)
        for path in list(self.root.rglob('*')):
            if self.root / 'build' not in path.parents and path.is_file():
                if str(path.relative_to(self.root)) not in wanted:
                    path.unlink()

    def prepare(self, everything):
        """Builds the test programs unchanged, so that a mutant costs its own file and the links."""
        environment = dict(os.environ)
        if shutil.which('ccache'):
            environment.update(CMAKE_CXX_COMPILER_LAUNCHER='ccache', CCACHE_BASEDIR=str(self.root))
        with open(self.root.with_suffix('.log'), 'w', encoding='utf-8') as log:
            run = functools.partial(subprocess.run, cwd=self.root, check=True, env=environment, stdout=log,
                                    stderr=log)
            if self.under_way.exists():  # a run that was broken off has left a mutant's object
                os.utime(self.root / self.under_way.read_text(encoding='utf-8'))
            run(['cmake', '--preset', 'mutants'])
            targets = self._list_programs()
            run(['ninja', '-C', self.build, *([] if everything else targets)])
        self.under_way.unlink(missing_ok=True)
        self._read_dependencies()
        self.programs = [Program(self.build / target, self._arguments_of(target)) for target in targets]

    def ninja(self, *targets):
        # Ninja ends with this script, lest it put a mutant's object in place afterwards.
        return subprocess.run(['setpriv', '--pdeathsig', 'TERM', 'ninja', '-C', str(self.build), '-j', '1',
                               *map(str, targets)], check=False,
                              env=dict(os.environ, CCACHE_DISABLE='1'), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def _ask_ninja(self, tool, *arguments):
        return subprocess.run(['ninja', '-C', str(self.build), '-t', tool, *arguments], check=True,
                              capture_output=True, text=True).stdout.splitlines()

    def _read_dependencies(self):
        """The objects made from each file of the project, headers included."""
        self.objects = {}
        for line in self._ask_ninja('deps'):
            if line.startswith('    '):
                file = os.path.relpath(self.build / line.strip(), self.root)
                self.objects.setdefault(file, []).append(target)
            elif ':' in line:
                target = line.split(':')[0]

    def _list_programs(self):
        """The test programs that link the platform."""
        rules = (line.partition(': ') for line in self._ask_ninja('targets', 'all'))
        programs = [target for target, _, rule in rules
                    if target.startswith('tests/') and rule.startswith('CXX_EXECUTABLE_LINKER')]
        return [target for target in programs
                if any(line.endswith('libplatform.a') for line in self._ask_ninja('query', target))]

    def _arguments_of(self, target):
        name = pathlib.Path(target).name
        corpus = self.root / 'tests/fuzz/corpus' / name.removeprefix('Fuzz')
        return [corpus] if name.startswith('Fuzz') else ['--gtest_fail_fast', '--gtest_brief=1']

    def measure(self):
        """Runs each program unchanged, unless the same one was run before. Returns those that fail."""
        notes = self.root.with_suffix('.json')  # seconds by the digest of the program
        known = json.loads(notes.read_text(encoding='utf-8')) if notes.exists() else {}
        failing = []
        for program in self.programs:
            key = program.digest.hex()
            if key not in known:
                started = time.monotonic()
                if not (program.run(BASELINE_LIMIT) or program.run(BASELINE_LIMIT)): # once may be the load
                    failing.append(program.path.name)
                    continue
                known[key] = time.monotonic() - started
                notes.write_text(json.dumps(known), encoding='utf-8')
            program.seconds = known[key]
        return failing

    # ---- trying a mutant ----

    def programs_with(self, file):
        """The programs that contain the file: its own tests first, then from quick to slow."""
        sources = {pathlib.Path(name).name.removesuffix('.o') for name in self.objects.get(file, [])}
        stem = pathlib.Path(file).stem
        own = {f'{stem}Test.cpp', f'{stem}sTest.cpp'}
        found = [program for program in self.programs if program.contains(sources)]
        return sorted(found, key=lambda program: (not program.contains(own), program.seconds))

    def try_mutant(self, file, text):
        """Puts the text in the file's place and returns what comes of it: `caught PROGRAM`,
        `survived`, `same code` or `does not compile`. Leaves everything as it was."""
        path = self.root / file
        objects = [self.build / name for name in self.objects.get(file, [])]
        saved = [(each, each.with_suffix('.saved')) for each in [path, *objects]]
        for each, copy in saved:
            shutil.copy2(each, copy)
        self.under_way.write_text(file, encoding='utf-8')
        try:
            path.write_text(text, encoding='utf-8')
            # Without its outputs ninja must make them anew: nothing older can be taken for the mutant.
            for output in [*objects, *(self.build / name for name in ARCHIVES)]:
                output.unlink(missing_ok=True)
            return self._judge(file, dict(saved))
        finally:
            for name in ARCHIVES:
                (self.build / name).unlink(missing_ok=True)
            for each, copy in reversed(saved): # the source last: until then it is newer
                os.replace(copy, each)
            self.under_way.unlink()

    def _judge(self, file, saved):
        own = [name for name in self.objects.get(file, []) if name.startswith(OWN_OBJECTS)]
        if not self.ninja(*own):
            return 'does not compile'
        if all(digest(self.build / name) == digest(saved[self.build / name]) for name in own):
            return 'same code'
        for program in self.programs_with(file):
            program.path.unlink(missing_ok=True)
            if not self.ninja(program.path.relative_to(self.build)):
                return 'does not compile'
            if digest(program.path) == program.digest:
                continue  # the linker left the file out
            if not program.run(10 + 5 * program.seconds):
                return f'caught {program.path.name}'
        return 'survived'

    def try_system_tests(self, file, text):
        """The same with the real daemon, by every system test; takes minutes."""
        path = self.root / file
        original = path.read_text(encoding='utf-8')
        daemon = self.build / 'bin/trayprobed'
        before = digest(daemon)
        try:
            path.write_text(text, encoding='utf-8')
            daemon.unlink()
            if not self.ninja() or digest(daemon) == before:
                return 'survived'
            passed = subprocess.run(
                ['ctest', '--preset', 'mutants', '-L', 'system|slow', '--stop-on-failure', '--parallel', '2'],
                cwd=self.root, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL, check=False).returncode == 0
            return 'survived' if passed else 'caught by a system test'
        finally:
            path.write_text(original, encoding='utf-8')
            self.ninja()
