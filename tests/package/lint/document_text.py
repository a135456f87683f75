"""What the checks of the documents share: which they are, and what is in them."""
import glob
import re

FENCE = re.compile(r'^(```+)(\w*)\n(.*?)^\1$\n?', re.M | re.S)
SPAN = re.compile(r'(?<!`)`([^`\n]+)`(?!`)')
HEADING = re.compile(r'^#+ +(.*?) *$', re.M)


def documents():
    """The paths of all documents, from the top of the tree."""
    return sorted(glob.glob('*.md') + glob.glob('docs/**/*.md', recursive=True) +
                  glob.glob('contrib/*.md') + glob.glob('tests/*.md'))


def read(path):
    with open(path, encoding='utf-8') as file:
        return file.read()


def without_code(text):
    """The prose, in which an indented line of a list is prose, too."""
    return FENCE.sub('\n', text)


def indented_blocks(text):
    """Blocks of code that are indented by four blanks after an empty line."""
    found = re.findall(r'(?<=\n\n)((?: {4}.*\n|\n(?= {4}))+)', without_code(text) + '\n')
    return [re.sub(r'^ {4}', '', block, flags=re.M) for block in found]


def anchor_of(heading):
    """As the forges make it."""
    words = re.sub(r'\[([^]]*)\]\([^)]*\)', r'\1', heading).lower()
    return re.sub(r'[^\w\- ]', '', words).replace(' ', '-')


def anchors(text):
    """The anchors of all headings."""
    found = {}
    for heading in HEADING.findall(without_code(text)):
        anchor = anchor_of(heading)
        found[anchor] = found.get(anchor, -1) + 1
    return {anchor if count == 0 else f'{anchor}-{count}'
            for anchor, last in found.items() for count in range(last + 1)}
