#!/usr/bin/env python3
"""Finds the words of the vector vocabulary that have no line in words.cpp, which checks each at every level, and lines
of no word.

usage: words_test.py WORDS FOLDER   (words.cpp; the headers' folder)
"""
import pathlib
import re
import sys

# What words are made of, and, last, words that the comparisons and fills alone have a use for, whose cases try them.
PARTS = {
    "lanewise of 2", "interleave(Bytes,Bytes,int)", "narrow_halves(Vec<From>,Vec<From>,From,From)",
    "first_bytes(int64_t)", "first_bytes(constvoid*,int64_t)", "behind(int64_t)", "load_part(constvoid*,int64_t)",
    "widened of 0", "widening_add(U8,U8,int)", "mul_add_each(F32,F32,F32)", "mul_add_in_double(F32,F32,F32)",
    "streams(int64_t)", "load_each(constuint8_t*,constint32_t*,int)", "joined(__m128i,__m128i,__m128i,__m128i)",
    "deal_groups3 of 2", "store_lanes(void*,uint64_t,Bytes)",
}


def key(word, template):
    """The name and parameter types without spaces; of a template the name and how many parameters follow the first."""
    plain = re.sub(r"\s|<\w+>(?=\()|TARN_RESTRICT", "", word)
    return f"{plain[:plain.index('(')]} of {plain.count(',')}" if template else plain


def words_of(header):
    function = r"\n(?:\[\[[^\n]*\]\] )?(?:inline )?\w[\w<>]*[ &*]+(\w+\([^;{}]*?\)) \{"
    for word in re.findall(function, header):
        types = re.sub(r"\w+(\)?(?:\[\d+\])?)(?: = [^,()]*)?(,|\)$)", r"\1\2", word)
        yield key(types, re.search(r"\b[A-Z]\b", types))  # types of one letter are a template's


def main():
    text = pathlib.Path(sys.argv[1]).read_text()
    lines = re.findall(r'"(\w+\(.*\))"', text)
    lines += [name + types for name, types in re.findall(r"WORD\([^,]*, ([\w<>]+), (\([^()]*\))", text)]
    words = {word for header in pathlib.Path(sys.argv[2]).glob("*.h") for word in words_of(header.read_text())}
    checked = {key(line, template) for line in lines for template in (False, True)}
    bare = words - checked - PARTS
    strangers = [line for line in lines if not {key(line, False), key(line, True)} & words]
    print(f"{len(words)} words, {len(lines)} lines")
    print("words without a line:", *sorted(bare))
    print("lines without a word:", *strangers)
    return 1 if bare or strangers or len(words) < 90 else 0


if __name__ == "__main__":
    sys.exit(main())
