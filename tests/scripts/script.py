"""Loads a script that has no suffix as a module."""

import importlib.machinery
import importlib.util
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def load(name):
    """A fresh module of scripts/NAME, whose constants a test may change."""
    loader = importlib.machinery.SourceFileLoader(name, str(ROOT / "scripts" / name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    sys.modules[name] = module  # for dataclasses
    loader.exec_module(module)
    return module


def write_program(path, text):
    """Writes a shell script that can be run."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(f"#!/bin/sh\n{text}\n")
    path.chmod(0o755)
