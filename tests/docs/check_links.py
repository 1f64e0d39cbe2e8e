"""Every relative link of the documents leads to a file of the tree."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
missing = []
documents = [root / "README.md", *root.glob("docs/**/*.md")]
for document in documents:
    for target in re.findall(r"\]\(([^)#\s]+)", document.read_text()):
        if "://" not in target and not (document.parent / target).exists():
            missing.append(f"{document.relative_to(root)}: {target}")
print(f"{len(documents)} documents, {len(missing)} dead links", *missing, sep="\n")
sys.exit(1 if missing else 0)
