"""What psd-tools reads from a document, one line per layer (groups included, bottom first):
kind|name|left,top,right,bottom|blend|opacity|visible|clipping|SHA-256 of its 8-bit RGBA pixels"""
import hashlib
import sys

from psd_tools import PSDImage


def walk(group):
    for layer in group:  # bottom first
        if layer.is_group():
            yield from walk(layer)
        yield layer


for layer in walk(PSDImage.open(sys.argv[1])):
    pixels = ""
    if not layer.is_group() and layer.width and layer.height:
        pixels = hashlib.sha256(layer.topil().convert("RGBA").tobytes()).hexdigest()
    print("|".join(["group" if layer.is_group() else "layer", layer.name, ",".join(map(str, layer.bbox)),
                    layer.blend_mode.name.lower(), str(layer.opacity), str(layer.visible).lower(),
                    str(layer.clipping_layer).lower(), pixels]))
