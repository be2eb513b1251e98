#!/usr/bin/env python3
"""Reads the #include lines of the sources and names those that run against the architecture.

Usage: check_includes.py [SOURCE_TREE]

Prints a line for each forbidden include and ends with 1 when there is one. The picture of the
architecture must show the rooms of the command and their arrows. What may include what:

    src/host        cli -> kit, parts -> each, watch -> run, report -> draw -> job -> base; every header is
                    named with its room; of modules/support only the parsers of words/, and only in
                    job
    src/kernel      MOXKernel_fortran -> MOXKernel_c -> MOXKernel -> JobManager -> ... -> UniVar
    src/components  nothing of src/kernel, src/host and modules
    modules         of the kernel only the module interface (knl.h, knl_fortran.h, MOXKernel.h) and
                    UniVar.h; of the components only those of src/components/segy; the tee also
                    DataChannel.h and SeisTrace.h;
                    modules/kit/generator, a program of the build, also base and job of src/host
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
SOURCES = {'.h', '.hpp', '.inc', '.c', '.cpp', '.cc'}

# The rooms of the command, and the rooms that each may use besides itself.
ROOMS = {
    'base': set(),
    'job': {'base'},
    'draw': {'base', 'job'},
    'run': {'base', 'job'},
    'report': {'base', 'job', 'draw'},
    'each': {'base', 'job', 'run', 'report'},
    'parts': {'base', 'job', 'run', 'each'},
    'watch': {'base', 'job', 'run'},
    'embed': {'base', 'job', 'run'},
    'kit': {'base', 'job', 'run', 'each', 'watch'},
    'cli': {'base', 'job', 'draw', 'run', 'report', 'each', 'parts', 'kit', 'watch'},
}

# What the check of a job parses as the modules do: formulas and tables. Nothing of it needs a kernel.
PARSERS = {'words/Assignment.h', 'words/CsvFile.h', 'words/Expression.h', 'words/KeyedTable.h'}

# The kernel's units from the lowest layer to the highest; those in one row may include each other.
# A header that is not listed (a private container) is as high as the highest header it includes.
KERNEL_LAYERS = [
    ['vorn_export', 'vorn_assert', 'vorn_tools', 'vorn_version', 'hostcallbacks', 'kernel_messages',
     'JobOutcome'],
    ['UniVar', 'TraceAttribute'],
    ['SeisTrace'],
    ['ScratchManager'],
    ['SeisTraceSet', 'TraceAttributeList'],
    ['DataChannel'],
    ['LibraryEntity', 'GroupEntity'],
    ['ModuleEntity'],
    ['JobManager'],
    ['MOXKernel', 'MOXKernel_families', 'HostModules', 'WatchedCalls', 'WatchedFacade'],
    ['MOXKernel_c', 'knl'],
    ['MOXKernel_fortran', 'knl_fortran'],
]
LAYER_OF = {unit: layer for layer, row in enumerate(KERNEL_LAYERS) for unit in row}

# Sources that look upwards, since memory and messages belong to the job. Only sources: no header of
# the data model includes JobManager.h.
UPWARDS = {
    'TraceAttribute.cpp': {'JobManager.h'},
    'SeisTrace.cpp': {'JobManager.h', 'ScratchManager.h'},
    'ScratchManager.cpp': {'JobManager.h'},
    'ModuleEntity.cpp': {'JobManager.h'},
}

# Modules in C take from knl_fortran.h what knl.h has no form of.
MODULE_HEADERS = {'knl.h', 'knl_fortran.h', 'MOXKernel.h', 'UniVar.h'}

# The tee is wiring that runs as a module: it moves a trace only where header layouts agree and where
# no other module reads its input.
TEE = ('tee', 'tee.cpp')
TEE_HEADERS = {'DataChannel.h', 'SeisTrace.h'}

# The program that makes parameter structures from manifests at build time reads them as the command
# does.
GENERATOR = ('kit', 'generator')
GENERATOR_ROOMS = {'base', 'job'}


PICTURE = 'docs/pictures/architecture.dot'


def reached(arrows, room, found=None):
    """All rooms that arrows lead to from `room`."""
    found = set() if found is None else found
    for other in arrows.get(room, ()):
        if other not in found:
            found.add(other)
            reached(arrows, other, found)
    return found


def sources_below(folder):
    return sorted(path for path in folder.rglob('*') if path.suffix in SOURCES)


def includes_of(path):
    """Pairs of line number and name, of "..." and <...> alike."""
    text = path.read_text(encoding='utf-8', errors='replace')
    return [(text.count('\n', 0, match.start(2)) + 1, match.group(2))
            for match in INCLUDE.finditer(text)]


def base_name(name):
    return name.rsplit('/', 1)[-1]


class Tree:
    """The sources of the project, and what is wrong with their includes."""

    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.problems = []
        self.kernel = {path.name: path for path in sources_below(self.root / 'src/kernel')}
        components = sources_below(self.root / 'src/components')
        self.components = {path.name: path for path in components}
        self.segy = {path.name for path in components if 'segy' in path.parts}
        self.host = {path.name for path in sources_below(self.root / 'src/host')}
        self.layers = {}

    def report(self, path, line, text):
        self.problems.append(f'{path.relative_to(self.root)}:{line}: {text}')

    # ---- src/host ----

    def check_host(self):
        folder = self.root / 'src/host'
        for path in sources_below(folder):
            room = path.relative_to(folder).parts[0]
            if room not in ROOMS:
                self.report(path, 1, f'"{room}" is not a room of src/host')
                continue
            for line, name in includes_of(path):
                self.check_host_include(path, line, room, name)

    def check_host_include(self, path, line, room, name):
        first = name.split('/')[0]
        if first in ROOMS:
            if first != room and first not in ROOMS[room]:
                self.report(path, line, f'{room} must not include {name}')
        elif (self.root / 'modules/support' / name).is_file():
            if room != 'job' or name not in PARSERS:
                self.report(path, line, f'{room} must not include {name} of the modules')
        elif (path.parent / name).is_file() or name in self.host:
            self.report(path, line, f'{name} must be named with its room')

    def check_picture(self):
        """The arrows of a room may lead over others; arrows that come of others are left out."""
        path = self.root / PICTURE
        if not path.is_file():
            return
        arrows = {}
        for one, other in re.findall(r'^ *(\w+) -> (\w+)', path.read_text(encoding='utf-8'), re.M):
            if one in ROOMS and other in ROOMS:
                arrows.setdefault(one, set()).add(other)
        svg = path.with_suffix('.svg').read_text(encoding='utf-8')
        for room in ROOMS:
            if reached(arrows, room) != reached(ROOMS, room):
                self.report(path, 1, f'the arrows of {room} are others than those of its includes')
            if f'<title>{room}</title>' not in svg:
                self.report(path, 1, f'{room} is not in the picture made of it')
        for one, others in arrows.items():
            for other in sorted(others):
                if f'<title>{one}&#45;&gt;{other}</title>' not in svg:
                    self.report(path, 1, f'{one} -> {other} is not in the picture made of it')

    # ---- src/kernel ----

    def layer_of_header(self, name, seen=()):
        """The layer of a kernel header; -1 for any other."""
        unit = name.rsplit('.', 1)[0]
        if unit in LAYER_OF:
            return LAYER_OF[unit]
        if name not in self.kernel or name in seen:
            return -1
        if name not in self.layers:
            self.layers[name] = max((self.layer_of_header(base_name(other), (*seen, name))
                                     for _, other in includes_of(self.kernel[name])), default=-1)
        return self.layers[name]

    def layer_of_unit(self, path):
        """The layer of a listed unit; JobManager_phases.cpp belongs to JobManager."""
        for unit in (path.stem, path.stem.split('_')[0]):
            if unit in LAYER_OF:
                return LAYER_OF[unit]
        return None

    def check_kernel(self):
        for path in sources_below(self.root / 'src/kernel'):
            layer = self.layer_of_unit(path)
            allowed = UPWARDS.get(path.name, set())
            for line, name in includes_of(path):
                other = base_name(name)
                if other in self.host or (other in self.segy and other not in self.kernel):
                    self.report(path, line, f'the kernel must not include {name}')
                elif (layer is not None and other not in allowed and
                      self.layer_of_header(other) > layer):
                    self.report(path, line, f'{path.stem} is below {name}')

    # ---- src/components and modules ----

    def check_components(self):
        for path in sources_below(self.root / 'src/components'):
            for line, name in includes_of(path):
                other = base_name(name)
                if other not in self.components and (other in self.kernel or other in self.host):
                    self.report(path, line, f'components must not include {name}')

    def check_modules(self):
        folder = self.root / 'modules'
        for path in sources_below(folder):
            parts = path.relative_to(folder).parts
            if 'tests' in parts or parts[0] == 'support':
                continue  # tests run modules, and so use what hosts use
            for line, name in includes_of(path):
                other = base_name(name)
                if (path.parent / name).is_file() or other in MODULE_HEADERS or other in self.segy:
                    continue
                if parts == TEE and other in TEE_HEADERS:
                    continue
                if parts[:2] == GENERATOR and name.split('/')[0] in GENERATOR_ROOMS:
                    continue
                if other in self.kernel or other in self.components or other in self.host:
                    self.report(path, line, f'modules must not include {name}')


def problems_of(root):
    """One line for each forbidden include below `root`, in the order of the files."""
    tree = Tree(root)
    tree.check_host()
    tree.check_picture()
    tree.check_kernel()
    tree.check_components()
    tree.check_modules()
    return tree.problems


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parents[2]
    if not (pathlib.Path(root) / 'src/kernel').is_dir():
        sys.exit(f'{root} has no sources of the kernel')
    problems = problems_of(root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
