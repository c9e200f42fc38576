"""psd-tools' own blend of a document's layers, as an 8-bit RGBA PNG: psdtools_composite.py IN OUT"""
import sys

from psd_tools import PSDImage

image = PSDImage.open(sys.argv[1]).composite(force=True, ignore_preview=True)
image.convert("RGBA").save(sys.argv[2])
