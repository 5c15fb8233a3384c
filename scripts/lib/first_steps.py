"""Finds the uses of the macros of common/VErr.h that no earlier error can precede.

VERR_STEP, VERR_GET, VERR_NEED and VERR_STATUS do nothing if an earlier step has failed. No step can
have failed before the first one after the error chain was made empty, or in a block whose condition
says that the chain is empty.
"""

import re

STEP = re.compile(r'\bVERR_(?:STEP|GET|NEED|STATUS)(?:_IN)?\( *(?:function, )?(\w+),')
MADE_EMPTY = re.compile(r'VErrLink\* (\w+) = nullptr;|VErr(?:LogAnd)?Catch\(&(\w+)\);')
CONDITION = re.compile(r'^\s*(?:if|while|for) \((?!.*\|\|).*\{$')
SEEN_EMPTY = re.compile(r'(?<!\*)\b(\w+) == nullptr\b')
LOOP = re.compile(r'\b(?:for|while|do)\b')


def stay_empty(chains, text, step):
    """Returns the chains that are still empty after the line, if the function continues."""
    taken = step[1] if step else None
    return {chain for chain in chains if chain != taken and (
        'return' in text or not re.search(rf'&{chain}\b|\b{chain} = ', text))}


def find_first_steps(texts):
    """Yields the line numbers of such first steps in the lines of a source file."""
    made, seen = set(), set()  # chains that are empty here: by assignment, by the block's condition
    for number, (text, following) in enumerate(zip(texts, [*texts[1:], '']), 1):
        text = text.split('//')[0].rstrip()
        step = STEP.search(text + following.lstrip() if text.endswith('(') else text)
        if step and step[1] in made | seen:
            yield number
        if text.lstrip().startswith('}'):  # the block ends, and with it what its condition says
            seen = set()
        if LOOP.search(text):  # a chain that is empty before a loop may not be in its second iteration
            made = set()
        made, seen = stay_empty(made, text, step), stay_empty(seen, text, step)
        made |= {name for emptied in MADE_EMPTY.finditer(text) for name in emptied.groups() if name}
        if CONDITION.match(text):
            seen |= {name[1] for name in SEEN_EMPTY.finditer(text)}
