"""Where the macros of common/VErr.h ask for an error that there cannot be.

VERR_STEP, VERR_NEED and VERR_STATUS do nothing when a step before has failed. Nothing can have failed
at the first step after the chain was made empty, or was seen to be empty by the block's condition.
"""

import re

STEP = re.compile(r'\bVERR_(?:STEP|NEED|STATUS)(?:_IN)?\( *(?:function, )?(\w+),')
MADE_EMPTY = re.compile(r'VErrLink\* (\w+) = nullptr;|VErr(?:LogAnd)?Catch\(&(\w+)\);')
CONDITION = re.compile(r'^\s*(?:if|while|for) \((?!.*\|\|).*\{$')
SEEN_EMPTY = re.compile(r'(?<!\*)\b(\w+) == nullptr\b')
LOOP = re.compile(r'\b(?:for|while|do)\b')


def stay_empty(chains, text, step):
    """Those that the line leaves empty, unless it leaves the function."""
    taken = step[1] if step else None
    return {chain for chain in chains if chain != taken and (
        'return' in text or not re.search(rf'&{chain}\b|\b{chain} = ', text))}


def find_first_steps(texts):
    """The numbers of those lines in a source file, given its lines."""
    made, seen = set(), set()  # the chains that are empty here, and by what
    for number, (text, following) in enumerate(zip(texts, [*texts[1:], '']), 1):
        text = text.split('//')[0].rstrip()
        step = STEP.search(text + following.lstrip() if text.endswith('(') else text)
        if step and step[1] in made | seen:
            yield number
        if text.lstrip().startswith('}'):  # the condition holds no longer
            seen = set()
        if LOOP.search(text):  # what was empty before it may be none in the second turn
            made = set()
        made, seen = stay_empty(made, text, step), stay_empty(seen, text, step)
        made |= {name for emptied in MADE_EMPTY.finditer(text) for name in emptied.groups() if name}
        if CONDITION.match(text):
            seen |= {name[1] for name in SEEN_EMPTY.finditer(text)}
