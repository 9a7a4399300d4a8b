"""Remembers which sources a static check of "make lint" found clean, so that a later run
skips them while nothing they are made of has changed (as ccache does for the compiler).

A source's key is a SHA-256 over the check's name and settings, the tool's version, the
source's compile options and its preprocessed text (every header it includes, expanded),
kept with its comments (NOLINT marks, argument comments), its #define lines and its
#include lines, which the checks read too.
The tree's own folder is replaced by a fixed word in the options and the text, so a clone
elsewhere (CI's) finds what a run in another folder stored. Only clean results are kept:
a source with findings is checked again every time. Folder: $CORVEL_LINT_CACHE, else
$XDG_CACHE_HOME/corvel-lint, else ~/.cache/corvel-lint. A source that cannot be
preprocessed has no key and is always checked.
"""
import hashlib
import os
import shlex
import subprocess

# Options that name outputs or dependency files: they change nothing a check sees.
_OUTPUT_OPTIONS = {"-o", "-MF", "-MT", "-MQ"}
_OUTPUT_FLAGS = {"-c", "-MD", "-MMD"}


def cache_folder():
    explicit = os.environ.get("CORVEL_LINT_CACHE")
    if explicit:
        return explicit
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return os.path.join(base, "corvel-lint")


def compile_arguments(entry):
    """The entry's compiler options without its outputs and without the source itself."""
    args = entry["arguments"] if "arguments" in entry else shlex.split(entry["command"])
    kept = []
    skip = False
    for arg in args[1:]:
        if skip:
            skip = False
        elif arg in _OUTPUT_OPTIONS:
            skip = True
        elif arg not in _OUTPUT_FLAGS and arg != entry["file"]:
            kept.append(arg)
    return kept


def source_key(entry, root, settings):
    """The key of one source for a check described by settings (a list of strings), or
    None when the source cannot be preprocessed."""
    args = compile_arguments(entry)
    result = subprocess.run(["clang++", *args, "-E", "-C", "-dD", "-dI", entry["file"]], cwd=entry["directory"],
                            capture_output=True)
    if result.returncode != 0:
        return None
    text = result.stdout.replace(root.encode(), b"@TREE@")
    digest = hashlib.sha256()
    for part in settings + [a.replace(root, "@TREE@") for a in args] + [entry["file"].replace(root, "@TREE@")]:
        digest.update(part.encode() + b"\0")
    digest.update(text)
    return digest.hexdigest()


def is_clean(key):
    return key is not None and os.path.exists(os.path.join(cache_folder(), key[:2], key))


def remember_clean(key):
    if key is None:
        return
    folder = os.path.join(cache_folder(), key[:2])
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, key), "w", encoding="utf-8"):
        pass


def tool_version(tool):
    result = subprocess.run([tool, "--version"], capture_output=True, text=True)
    return result.stdout.strip()
