#!/usr/bin/env python3
"""check_functions.py: checks the lengths of functions, in lines from the name to the closing brace.

In the product, in the programs beside it and in the tests: the median is at most 8 lines, the 90th
percentile at most 20, the maximum 60. Prints the functions that are too long.
"""

import statistics
import sys

sys.dont_write_bytecode = True

from cpp_source import BESIDE, PRODUCT, functions_of, sources

MEDIAN = 8
NINE_OF_TEN = 20
LONGEST = 60


def check(what, paths):
    """Returns true if the functions of these files are within the limits."""
    lengths = {}
    for path in paths:
        for function in functions_of(path):
            if function.has_body:
                place = f'{path}:{function.first}: {function.name}'
                lengths[place] = function.last - function.first + 1
    ordered = sorted(lengths.values())
    median = statistics.median(ordered)
    nine_of_ten = ordered[len(ordered) * 9 // 10]
    print(f'{what}: {len(ordered)} functions, median {median:g} lines, 90 % up to {nine_of_ten},'
          f' longest {ordered[-1]}')
    for place, length in lengths.items():
        if length > LONGEST:
            print(f'    {place}: {length} lines')
    return median <= MEDIAN and nine_of_ten <= NINE_OF_TEN and ordered[-1] <= LONGEST


def main():
    results = [check('product', sources(*PRODUCT)),
               check('programs beside it', sources(*BESIDE)),
               check('tests', sources('tests'))]
    return 0 if all(results) else 1


sys.exit(main())
