#!/usr/bin/env python3
"""Keeps what the pages of modules say of parameters, ports and attributes equal to the manifests.

    pages.py --vorn VORN --home VORN_HOME check|update PAGE...

PAGE is modules/NAME/README.md. Between two comments it has what "vorn inspect NAME --markdown"
prints; `update` writes it there, `check` fails where it differs.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys

BEGIN = '<!-- Made by "vorn inspect {name} --markdown" from {name}.yaml. -->\n'
END = '<!-- End of what is made. -->\n'


def interface(vorn, home, name):
    run = subprocess.run([vorn, 'inspect', name, '--markdown'], stdout=subprocess.PIPE, text=True,
                         env={**os.environ, 'VORN_HOME': home}, check=True)
    return BEGIN.format(name=name) + '\n' + run.stdout + '\n' + END


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--vorn', required=True)
    parser.add_argument('--home', required=True)
    parser.add_argument('action', choices=['check', 'update'])
    parser.add_argument('pages', nargs='+', type=pathlib.Path)
    arguments = parser.parse_args()

    stale = 0
    for page in arguments.pages:
        name = page.parent.name
        text = page.read_text(encoding='utf-8')
        made = re.compile(re.escape(BEGIN.format(name=name)) + '.*?' + re.escape(END), re.DOTALL)
        if len(made.findall(text)) != 1:
            print(f'{page}: needs the comments, once each:\n{BEGIN.format(name=name)}{END}')
            stale += 1
            continue
        wanted = made.sub(lambda _: interface(arguments.vorn, arguments.home, name), text)
        if wanted == text:
            continue
        if arguments.action == 'update':
            page.write_text(wanted, encoding='utf-8')
            print(f'{page}: updated')
        else:
            print(f'{page}: differs from the manifest; build the target module_pages')
            stale += 1
    return 1 if stale else 0


sys.exit(main())
