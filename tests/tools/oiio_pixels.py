#!/usr/bin/python3
"""OpenImageIO as a peer for the interoperability tests (Debian's python3-openimageio).

  oiio_pixels.py read FILE RAWOUT [--unassociated]
                                           pixels top row first, channels as stored, uint8 or
                                           little-endian uint16; prints "W H C BITS"; with
                                           --unassociated, PNG/TIFF alpha is not premultiplied
  oiio_pixels.py write FILE W H C BITS RAWIN COMPRESSION
                                           writes FILE with OpenImageIO from such raw pixels
  oiio_pixels.py floats FILE RAWOUT        the data window as little-endian float32, top row first,
                                           channels as OpenImageIO orders them; prints
                                           "W H C X Y FULLW FULLH"
  oiio_pixels.py layers FILE               per subimage "NAME|SHA-256" of its 8-bit pixels, alpha
                                           unassociated (a layered document's layers)
"""
import hashlib
import sys

import numpy
import OpenImageIO as oiio


def main():
    if sys.argv[1] == "read":
        config = oiio.ImageSpec()
        if "--unassociated" in sys.argv[4:]:
            config.attribute("oiio:UnassociatedAlpha", 1)
        inp = oiio.ImageInput.open(sys.argv[2], config)
        if not inp:
            sys.exit("cannot open: " + oiio.geterror())
        spec = inp.spec()
        bits = 16 if spec.format == oiio.UINT16 else 8
        data = inp.read_image(oiio.UINT16 if bits == 16 else oiio.UINT8)
        inp.close()
        arr = numpy.ascontiguousarray(data)
        if bits == 16:
            arr = arr.astype("<u2")
        open(sys.argv[3], "wb").write(arr.tobytes())
        print(spec.width, spec.height, spec.nchannels, bits)
    elif sys.argv[1] == "floats":
        inp = oiio.ImageInput.open(sys.argv[2])
        if not inp:
            sys.exit("cannot open: " + oiio.geterror())
        spec = inp.spec()
        data = inp.read_image(oiio.FLOAT)
        inp.close()
        open(sys.argv[3], "wb").write(numpy.ascontiguousarray(data).astype("<f4").tobytes())
        print(spec.width, spec.height, spec.nchannels, spec.x, spec.y, spec.full_width, spec.full_height)
    elif sys.argv[1] == "layers":
        config = oiio.ImageSpec()
        config.attribute("oiio:UnassociatedAlpha", 1)
        inp = oiio.ImageInput.open(sys.argv[2], config)
        sub = 0
        while inp and inp.seek_subimage(sub, 0):
            data = numpy.ascontiguousarray(inp.read_image(oiio.UINT8))
            print(inp.spec().getattribute("oiio:subimagename") or "", hashlib.sha256(data.tobytes()).hexdigest(), sep="|")
            sub += 1
    elif sys.argv[1] == "write":
        name, w, h, c, bits, raw, comp = sys.argv[2:9]
        w, h, c, bits = int(w), int(h), int(c), int(bits)
        dtype = "<u2" if bits == 16 else "u1"
        arr = numpy.frombuffer(open(raw, "rb").read(), dtype=dtype).reshape(h, w, c)
        spec = oiio.ImageSpec(w, h, c, oiio.UINT16 if bits == 16 else oiio.UINT8)
        spec.attribute("compression", comp)
        out = oiio.ImageOutput.create(name)
        if not out or not out.open(name, spec):
            sys.exit("cannot write: " + oiio.geterror())
        out.write_image(arr)
        out.close()


main()
