"""A copy of the project in which mutants are built and tried, one after another."""

import collections
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import time

from test_program import Program, digest

OWN_OBJECTS = ('CMakeFiles/connection.dir/', 'CMakeFiles/daemon.dir/', 'CMakeFiles/trayprobed.dir/',
               'platform/linux/CMakeFiles/platform.dir/')
ARCHIVES = ('libconnection.a', 'libdaemon.a', 'platform/linux/libplatform.a')
BASELINE_LIMIT = 300  # seconds, for a program whose run time is not yet known


class Tree:
    def __init__(self, project, root):
        self.project, self.root = project, root
        self.build = root / 'build/mutants'
        self.under_way = root.with_suffix('.under-way')  # holds the path of the file that is changed now
        self.catches = collections.Counter()  # by folder of the file and program

    # ---- preparing the tree ----

    def update(self):
        """Copies the project's sources. Unchanged files keep their modification time."""
        listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'],
                                cwd=self.project, check=True, capture_output=True, text=True).stdout
        sources = {name for name in listed.split('\0') if name and (self.project / name).is_file()}
        for name in sources:
            ours, theirs = self.root / name, self.project / name
            if not ours.is_file() or ours.read_bytes() != theirs.read_bytes():
                ours.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(theirs, ours)
        for path in list(self.root.rglob('*')):
            if self.root / 'build' not in path.parents and path.is_file():
                if str(path.relative_to(self.root)) not in sources:
                    path.unlink()

    def prepare(self):
        """Builds the unchanged test programs; a mutant then costs one compilation and the links.
        Returns false on failure; the log is beside the tree."""
        environment = dict(os.environ)
        if shutil.which('ccache'):
            environment.update(CMAKE_CXX_COMPILER_LAUNCHER='ccache', CCACHE_BASEDIR=str(self.root))
        if self.under_way.exists():  # an interrupted run has left the object of a mutant
            os.utime(self.root / self.under_way.read_text(encoding='utf-8'))
        with open(self.root.with_suffix('.log'), 'w', encoding='utf-8') as log:
            def succeeds(*command):
                return subprocess.run(command, cwd=self.root, check=False, env=environment, stdout=log,
                                      stderr=log).returncode == 0
            if not succeeds('cmake', '--preset', 'mutants'):
                return False
            targets = self._list_programs()
            if not succeeds('ninja', '-C', self.build, *targets):
                return False
        self.under_way.unlink(missing_ok=True)
        self._read_dependencies()
        self.programs = [Program(self.build / target, self._arguments_of(target)) for target in targets]
        return True

    def ninja(self, *targets):
        # Ninja must end with this script: it would install the object of a mutant afterwards.
        return subprocess.run(['setpriv', '--pdeathsig', 'TERM', 'ninja', '-C', str(self.build), '-j', '1',
                               *map(str, targets)], check=False,
                              env=dict(os.environ, CCACHE_DISABLE='1'), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def _ask_ninja(self, tool, *arguments):
        return subprocess.run(['ninja', '-C', str(self.build), '-t', tool, *arguments], check=True,
                              capture_output=True, text=True).stdout.splitlines()

    def _read_dependencies(self):
        """Finds the objects that depend on each file of the project, headers included."""
        self.objects = {}
        for line in self._ask_ninja('deps'):
            if line.startswith('    '):
                file = os.path.relpath(self.build / line.strip(), self.root)
                self.objects.setdefault(file, []).append(target)
            elif ':' in line:
                target = line.split(':')[0]

    def _list_programs(self):
        """Returns the test programs that link the platform."""
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
        """Runs each unchanged program twice, unless this version has passed before. Returns the
        failures: an unreliable program would report mutants as caught that are not."""
        notes = self.root.with_suffix('.json')  # seconds by the digest of the program
        known = json.loads(notes.read_text(encoding='utf-8')) if notes.exists() else {}
        wrong = []
        for program in self.programs:
            key = program.digest.hex()
            if key not in known:
                started = time.monotonic()
                results = [program.run(BASELINE_LIMIT) for _ in range(2)]
                if results != ['passed', 'passed']:
                    wrong.append(f'{program.path.name} ({", then ".join(results)})')
                    continue
                known[key] = (time.monotonic() - started) / 2
                notes.write_text(json.dumps(known), encoding='utf-8')
            program.seconds = known[key]
        return wrong

    # ---- trying a mutant ----

    def programs_with(self, file):
        """Returns the programs that contain the file, the most likely to catch a mutant first: the
        file's own tests, then those that have caught mutants of its folder, then the fastest."""
        sources = {pathlib.Path(name).name.removesuffix('.o') for name in self.objects.get(file, [])}
        stem = pathlib.Path(file).stem
        own = {f'{stem}Test.cpp', f'{stem}sTest.cpp'}
        found = [program for program in self.programs if program.contains(sources)]
        folder = os.path.dirname(file)
        return sorted(found, key=lambda program: (not program.contains(own),
                                                  -self.catches[folder, program.path.name],
                                                  program.seconds))

    def try_mutant(self, file, text):
        """Replaces the file by the text, builds and tests it. Returns `caught by PROGRAM`,
        `survived (...)`, `same code` or `does not compile`. Restores the file and the objects."""
        path = self.root / file
        objects = [self.build / name for name in self.objects.get(file, [])]
        saved = [(each, each.with_suffix('.saved')) for each in [path, *objects]]
        for each, copy in saved:
            shutil.copy2(each, copy)
        self.under_way.write_text(file, encoding='utf-8')
        try:
            path.write_text(text, encoding='utf-8')
            # Delete the outputs: ninja must not take older ones for those of the mutant.
            for output in [*objects, *(self.build / name for name in ARCHIVES)]:
                output.unlink(missing_ok=True)
            return self._judge(file, dict(saved))
        finally:
            for name in ARCHIVES:
                (self.build / name).unlink(missing_ok=True)
            for each, copy in reversed(saved): # the source last: it must be older than its objects
                os.replace(copy, each)
            self.under_way.unlink()

    def _judge(self, file, saved):
        objects = self.objects.get(file, [])
        # Tests compile the daemon's main file on their own.
        own = [name for name in objects if name.startswith(OWN_OBJECTS)] or objects
        if not own:
            return 'survived (no program contains the file)'
        if not self.ninja(*own):
            return 'does not compile'
        changed = [name for name in own if digest(self.build / name) != digest(saved[self.build / name])]
        if not changed:
            return 'same code'
        tried, unsteady = 0, []
        for program in self.programs_with(file):
            program.path.unlink(missing_ok=True)
            if not self.ninja(program.path.relative_to(self.build)):
                return 'does not compile'
            if digest(program.path) == program.digest:
                continue  # the linker left the file out
            tried += 1
            results = self._run_changed(program)
            if 'passed' not in results:
                self.catches[os.path.dirname(file), program.path.name] += 1
                return f'caught by {program.path.name}'
            if len(results) > 1:
                unsteady.append(program.path.name)
        if self._is_same_optimised(self.root / file, saved[self.root / file], changed):
            return 'same code'
        notes = [f'{tried} programs', *(f'{name} failed once' for name in unsteady)]
        return f'survived ({", ".join(notes)})'

    def _run_changed(self, program):
        """Runs a program, and once more after a failure: load on the machine may cause one failure."""
        limit = 5 + 4 * program.seconds
        results = [program.run(limit)]
        if results == ['failed']:
            results.append(program.run(limit))
        return results

    def _is_same_optimised(self, path, original, objects):
        """True if both texts compile to the same optimised code."""
        commands = json.loads((self.build / 'compile_commands.json').read_text(encoding='utf-8'))
        texts = path.read_bytes(), original.read_bytes()
        for words in (shlex.split(entry['command'].replace(' -O0 ', ' -O2 ')) for entry in commands):
            if words[words.index('-o') + 1] in objects:
                mutant, unchanged = (self._compiled(words, path, text) for text in texts)
                if mutant != unchanged:
                    return False
        return True

    def _compiled(self, words, path, text):
        output = self.root.with_suffix('.o')
        path.write_bytes(text)
        words[words.index('-o') + 1] = str(output)
        subprocess.run(words, cwd=self.build, check=True, env=dict(os.environ, CCACHE_DISABLE='1'))
        return digest(output)
