#!/usr/bin/env python3
"""The check of includes finds the arrows that run back up, and those alone.

Each test writes a few sources into a tree of its own, and reads what the check says of it.
"""
import pathlib
import tempfile
import unittest

import check_includes


class CheckIncludesTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name)
        # What the planted includes lead to.
        for name in ('kernel/vorn_export.h', 'kernel/UniVar.h', 'kernel/JobManager.h',
                     'kernel/knl.h', 'kernel/MOXKernel.h', 'components/segy/src/segyreader.h',
                     'components/metadata/core/src/metadataprovider.h', 'host/base/Text.h',
                     'host/job/JobFile.h', 'host/draw/Page.h', 'host/run/JobRunner.h',
                     'host/report/HtmlReport.h', 'host/cli/CommandTable.h'):
            self.write('src/' + name)

    def write(self, name, *includes):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(''.join(f'#include "{include}"\n' for include in includes))

    def problems(self):
        return check_includes.problems_of(self.root)

    def test_includes_that_run_downwards_are_allowed(self):
        self.write('src/host/cli/cmd_run.cpp', 'run/JobRunner.h', 'report/HtmlReport.h',
                   'draw/Page.h', 'job/JobFile.h', 'base/Text.h', 'cli/CommandTable.h')
        self.write('src/host/report/HtmlReport.cpp', 'draw/Page.h', 'job/JobFile.h')
        self.write('src/host/run/JobRunner.cpp', 'job/JobFile.h', 'JobManager.h', 'segyreader.h')
        self.write('src/kernel/MOXKernel.cpp', 'MOXKernel.h', 'JobManager.h', 'metadataprovider.h')
        self.write('src/components/segy/src/segyreader.cpp', 'segyreader.h')
        self.write('modules/agc/agc.cpp', 'knl.h', 'MOXKernel.h', 'segyreader.h')
        self.write('modules/tee/tee.cpp', 'MOXKernel.h', 'DataChannel.h')
        self.assertEqual(self.problems(), [])

    def test_rooms_of_the_command_do_not_look_up(self):
        for room, header in (('base', 'job/JobFile.h'), ('job', 'draw/Page.h'),
                             ('draw', 'run/JobRunner.h'), ('draw', 'report/HtmlReport.h'),
                             ('run', 'cli/CommandTable.h'), ('run', 'report/HtmlReport.h'),
                             ('run', 'draw/Page.h'), ('report', 'run/JobRunner.h'),
                             ('report', 'cli/CommandTable.h')):
            with self.subTest(room=room, header=header):
                self.write(f'src/host/{room}/Planted.cpp', 'base/Text.h', header)
                self.assertEqual(self.problems(), [
                    f'src/host/{room}/Planted.cpp:2: {room} must not include {header}'])
                (self.root / f'src/host/{room}/Planted.cpp').unlink()

    def test_the_check_of_jobs_uses_the_parsers_of_modules(self):
        for name in ('Expression.h', 'TraceWords.h'):
            self.write('modules/support/words/' + name)
        self.write('src/host/job/Planted.cpp', 'words/Expression.h', 'words/TraceWords.h')
        self.write('src/host/run/Planted.cpp', 'words/Expression.h')
        self.assertEqual(self.problems(), [
            'src/host/job/Planted.cpp:2: job must not include words/TraceWords.h of the modules',
            'src/host/run/Planted.cpp:1: run must not include words/Expression.h of the modules'])

    def test_headers_of_the_command_are_named_with_their_room(self):
        self.write('src/host/base/Planted.cpp', 'Text.h')
        self.write('src/host/cli/Planted.cpp', 'Text.h')
        self.assertEqual(self.problems(), [
            'src/host/base/Planted.cpp:1: Text.h must be named with its room',
            'src/host/cli/Planted.cpp:1: Text.h must be named with its room'])

    def test_there_are_no_further_rooms(self):
        self.write('src/host/util/Planted.cpp', 'base/Text.h')
        self.assertEqual(self.problems(), [
            'src/host/util/Planted.cpp:1: "util" is not a room of src/host'])

    def test_headers_of_the_data_model_do_not_include_the_job(self):
        self.write('src/kernel/SeisTrace.h', 'UniVar.h', 'JobManager.h')
        self.assertEqual(self.problems(), ['src/kernel/SeisTrace.h:2: SeisTrace is below JobManager.h'])

    def test_two_sources_of_the_data_model_may_speak_to_the_job(self):
        self.write('src/kernel/SeisTrace.cpp', 'JobManager.h')
        self.write('src/kernel/ScratchManager.cpp', 'JobManager.h')
        self.write('src/kernel/SeisTraceSet.cpp', 'JobManager.h')
        self.assertEqual(self.problems(), [
            'src/kernel/SeisTraceSet.cpp:1: SeisTraceSet is below JobManager.h'])

    def test_a_private_header_does_not_hide_an_arrow(self):
        self.write('src/kernel/private/Container.h', 'Other.h')
        self.write('src/kernel/private/Other.h', 'JobManager.h', 'private/Container.h')
        self.write('src/kernel/DataChannel.h', 'private/Container.h')
        self.assertEqual(self.problems(), [
            'src/kernel/DataChannel.h:1: DataChannel is below private/Container.h'])

    def test_the_job_does_not_include_the_module_interface(self):
        self.write('src/kernel/JobManager_phases.cpp', 'JobManager.h', 'MOXKernel.h')
        self.write('src/kernel/MOXKernel.cpp', 'knl.h')
        self.assertEqual(self.problems(), [
            'src/kernel/JobManager_phases.cpp:2: JobManager_phases is below MOXKernel.h',
            'src/kernel/MOXKernel.cpp:1: MOXKernel is below knl.h'])

    def test_the_kernel_includes_neither_the_command_nor_file_formats(self):
        self.write('src/kernel/UniVar.cpp', 'base/Text.h', 'segyreader.h')
        self.assertEqual(self.problems(), [
            'src/kernel/UniVar.cpp:1: the kernel must not include base/Text.h',
            'src/kernel/UniVar.cpp:2: the kernel must not include segyreader.h'])

    def test_components_include_nothing_of_the_kernel(self):
        self.write('src/components/segy/src/segyreader.cpp', 'vorn_export.h', '../../UniVar.h')
        self.assertEqual(self.problems(), [
            'src/components/segy/src/segyreader.cpp:1: components must not include vorn_export.h',
            'src/components/segy/src/segyreader.cpp:2: components must not include ../../UniVar.h'])

    def test_modules_know_the_module_interface_alone(self):
        self.write('modules/agc/agc.cpp', 'JobManager.h', 'metadataprovider.h', 'Text.h',
                   'generated_for_the_module.h')
        self.assertEqual(self.problems(), [
            'modules/agc/agc.cpp:1: modules must not include JobManager.h',
            'modules/agc/agc.cpp:2: modules must not include metadataprovider.h',
            'modules/agc/agc.cpp:3: modules must not include Text.h'])

    def test_the_generator_of_the_kit_reads_manifests_as_the_command_does(self):
        self.write('modules/kit/generator/main.cpp', 'base/Text.h', 'job/JobFile.h')
        self.assertEqual(self.problems(), [])
        self.write('modules/kit/generator/main.cpp', 'base/Text.h', 'draw/Page.h')
        self.write('modules/kit/kit.cpp', 'base/Text.h')
        self.assertEqual(self.problems(), [
            'modules/kit/generator/main.cpp:2: modules must not include draw/Page.h',
            'modules/kit/kit.cpp:1: modules must not include base/Text.h'])

    def test_the_picture_shows_all_rooms_and_their_arrows(self):
        folder = pathlib.Path(__file__).parents[2] / 'docs/pictures'
        dot = (folder / 'architecture.dot').read_text(encoding='utf-8')
        svg = (folder / 'architecture.svg').read_text(encoding='utf-8')
        place = 'docs/pictures/architecture.dot:1: '
        planted = self.root / 'docs/pictures/architecture.dot'
        planted.parent.mkdir(parents=True)
        planted.with_suffix('.svg').write_text(svg)

        planted.write_text(dot)
        self.assertEqual(self.problems(), [])
        planted.write_text(dot.replace('embed -> run\n', ''))
        self.assertEqual(self.problems(), [
            place + 'the arrows of embed are others than those of its includes'])
        planted.write_text(dot + 'cli -> draw\n')  # follows from others; the picture is older
        self.assertEqual(self.problems(), [place + 'cli -> draw is not in the picture made of it'])
        planted.write_text(dot)
        planted.with_suffix('.svg').write_text(svg.replace('<title>watch</title>', ''))
        self.assertEqual(self.problems(), [place + 'watch is not in the picture made of it'])

    def test_tests_of_modules_may_be_hosts(self):
        self.write('modules/agc/tests/AgcTest.cpp', 'JobManager.h')
        self.assertEqual(self.problems(), [])

    def test_includes_in_brackets_count(self):
        path = self.root / 'src/host/base/Planted.cpp'
        path.write_text('#include <vector>\n  #  include <cli/CommandTable.h>\n')
        self.assertEqual(self.problems(), [
            'src/host/base/Planted.cpp:2: base must not include cli/CommandTable.h'])


if __name__ == '__main__':
    unittest.main()
