#!/usr/bin/env python3
"""What is made from manifests with unusual names and defaults: it compiles without warnings, or the
generator refuses the manifest with one line.

    generator_test.py GENERATOR C_COMPILER CXX_COMPILER FORTRAN_COMPILER FORTRAN_MODULES INCLUDE...
"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

GENERATOR, CC, CXX, FC, MODULES = sys.argv[1:6]
INCLUDES = ['-I' + path for path in sys.argv[6:]]
WARNINGS = ['-Wall', '-Wextra', '-Wpedantic', '-Wshadow', '-Werror']
COMPILE = {
    'c': [CC, '-std=c99', *WARNINGS, '-DVORN_MODULE_NAME="m"', *INCLUDES, '-fsyntax-only'],
    'c++': [CXX, '-std=c++20', *WARNINGS, '-DVORN_MODULE_NAME="m"', *INCLUDES, '-fsyntax-only'],
    'fortran': [FC, '-Wall', '-Wextra', '-Werror', '-I' + MODULES, '-c', '-o', 'made.o'],
}
SOURCE = {'c': 'c', 'c++': 'cpp', 'fortran': 'f90'}
HEADER = {'c': 'h', 'c++': 'hpp', 'fortran': 'f90'}


class GeneratorTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def generate(self, language, module, *parameters):
        manifest = self.folder / 'manifest.yaml'
        manifest.write_text(
            f'module: "{module}"\nversion: 1.0.0\npurpose: Has parameters\ndescription: For a test.\n'
            'inputs: {min: 1, max: 1}\noutputs: {min: 1, max: 1}\n'
            'parameters:' + (''.join('\n  - ' + row for row in parameters) or ' []') +
            '\nreads: []\nwrites: []\ndraws: none\n', encoding='utf-8')
        return subprocess.run([GENERATOR, language, module, manifest, self.folder],
                              stderr=subprocess.PIPE, text=True, check=False)

    def made(self, language, file, module, *parameters):
        """The text of the header or of the Fortran module, which must compile."""
        run = self.generate(language, module, *parameters)
        self.assertEqual((run.returncode, run.stderr), (0, ''))
        source = self.folder / f'{file}_parameters.{SOURCE[language]}'
        run = subprocess.run([*COMPILE[language], source], cwd=self.folder,
                             stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ''))
        return (self.folder / f'{file}_parameters.{HEADER[language]}').read_text(encoding='utf-8')

    def refused(self, language, module, message, *parameters):
        run = self.generate(language, module, *parameters)
        self.assertEqual((run.returncode, run.stderr), (1, f'vorn_parameters: {message}\n'))

    def test_default_beyond_32_bits_makes_the_field_wide(self):
        rows = ('{name: alone, type: int, default: 5000000000, help: wide}',
                '{name: low, type: int, default: -2147483649, help: wide}',
                '{name: some, type: int_list, default: [1, 2147483648], help: wide}',
                '{name: narrow, type: int, default: 2147483647, help: narrow}')
        expected = {
            'c': ('int64_t alone;', 'int64_t low;', 'const int64_t* some;', 'int narrow;'),
            'c++': ('std::int64_t alone = 5000000000LL;', 'std::int64_t low = -2147483649LL;',
                    'std::vector<std::int64_t> some = {1LL, 2147483648LL};',
                    'int narrow = 2147483647;'),
            'fortran': ('integer(c_int64_t) :: alone', 'integer(c_int64_t) :: low',
                        'integer(c_int64_t), allocatable :: some(:)',
                        'integer(c_int) :: narrow'),
        }
        for language, lines in expected.items():
            with self.subTest(language):
                text = self.made(language, 'm', 'm', *rows)
                for line in lines:
                    self.assertIn(line, text)

    def test_module_name_that_begins_with_a_digit(self):
        row = '{name: mode, type: choice, choices: [2d, 3-d], default: 2d, help: a choice}'
        expected = {'c': 'bool _2d_fk_read_parameters(_2d_fk_parameters* parameters);',
                    'c++': 'namespace _2d_fk_parameters {',
                    'fortran': 'module m_2d_fk_parameters\n'}
        for language, line in expected.items():
            with self.subTest(language):
                self.assertIn(line, self.made(language, '_2d_fk', '2d-fk', row))
        self.assertIn('module m_x_parameters\n', self.made('fortran', '_x', '_x', row))

    def test_name_too_long_for_fortran(self):
        row = '{name: a, type: int, default: 1, help: a number}'
        fits, long = 'm' * 52, 'm' * 53
        self.made('fortran', fits, fits, row)
        self.made('c', long, long, row)
        self.refused('fortran', long,
                     f'the name of the module {long} is too long: {long}_parameters has 64 '
                     'characters, and Fortran takes 63', row)

    def test_default_below_the_normal_range(self):
        row = '{name: tiny, type: float, default: 1e-310, help: a number}'
        for language in COMPILE:
            with self.subTest(language):
                self.made(language, 'm', 'm', row)
        self.assertIn('tiny = 1e-310_c_double',
                      (self.folder / 'm_parameters.f90').read_text(encoding='utf-8'))

    def test_help_that_looks_like_a_comment(self):
        row = "{name: files, type: text, help: 'as data/*.sgy, data/**/ or /*/'}"
        for language in COMPILE:
            with self.subTest(language):
                self.made(language, 'm', 'm', row)
        self.assertIn('/** as data/ *.sgy, data/ ** / or / * /; may be absent. */',
                      self.made('c', 'm', 'm', row))

    def test_words_that_the_made_sources_use(self):
        self.made('c', 'x', 'x', '{name: parameters, type: choice, choices: [h, i], help: a}')
        self.made('c++', 'x', 'x',
                  '{name: a, type: choice, choices: [X_PARAMETERS_HPP, b], help: a}',
                  '{name: X_PARAMETERS_HPP, type: int, help: a}')
        self.made('fortran', 'x', 'x', '{name: x, type: choice, choices: [parameters, b], help: a}')
        self.made('fortran', 'x', 'x',
                  '{name: vorn, type: choice, choices: [kit, parameter], help: a}')

    def test_name_of_the_kit(self):
        row = '{name: a, type: int, default: 1, help: a number}'
        for language in COMPILE:
            for name in ['vorn', 'VORN']:
                self.refused(language, name,
                             f'a module cannot be called {name}: vorn_parameters.h is a header of '
                             'the kit; choose another name', row)
            self.made(language, 'vorn_kit', 'vorn_kit', row)

    def test_no_parameters(self):
        for language in COMPILE:
            with self.subTest(language):
                self.made(language, 'm', 'm')


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1])
