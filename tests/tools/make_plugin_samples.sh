#!/bin/bash
# Makes tests/data/plugins: small files of every bundled plug-in format written by ImageMagick
# (convert) and OpenImageIO (oiiotool), from one 23 x 17 picture with a gradient, noise and a
# half-transparent band. Run once; the files are kept with the sources. Peers: ImageMagick 6.9.11,
# OpenImageIO 2.4.7 (Debian 12).
set -euo pipefail
out=${1:-tests/data/plugins}
t=$(mktemp -d)
trap 'rm -rf "$t"' EXIT
convert -size 23x17 gradient:red-blue \( -size 23x17 xc: +noise Random -blur 0x0.5 \) -compose blend \
  -define compose:args=30 -composite -depth 8 "$t/rgb.png"
convert "$t/rgb.png" \( -size 23x17 gradient:white-black -level 20%,80% \) -alpha off -compose copy_opacity -composite "$t/rgba.png"
mkdir -p "$out"/{png,jpeg,tiff,exr,gif,webp,tga,bmp,jp2,hdr}
convert "$t/rgba.png" "$out/png/im_rgba8.png"
convert "$t/rgb.png" -colorspace gray -depth 16 "$out/png/im_grey16.png"
convert "$t/rgb.png" -colors 7 PNG8:"$out/png/im_palette.png"
convert "$t/rgba.png" -interlace PNG -depth 16 "$out/png/im_rgba16_interlaced.png"
convert "$t/rgb.png" -colorspace gray -monochrome "$out/png/im_bilevel.png"
oiiotool "$t/rgb.png" -d uint16 -o "$out/png/oiio_rgb16.png"
convert "$t/rgb.png" -quality 90 "$out/jpeg/im_rgb.jpg"
convert "$t/rgb.png" -colorspace gray "$out/jpeg/im_grey.jpg"
convert "$t/rgb.png" -interlace JPEG "$out/jpeg/im_progressive.jpg"
convert "$t/rgb.png" -colorspace cmyk "$out/jpeg/im_cmyk.jpg"
convert "$t/rgb.png" -compress lzw "$out/tiff/im_rgb8_lzw.tif"
convert "$t/rgba.png" -depth 16 -compress zip "$out/tiff/im_rgba16_zip.tif"
convert "$t/rgb.png" -define tiff:tile-geometry=16x16 "$out/tiff/im_tiled.tif"
convert "$t/rgb.png" -interlace plane "$out/tiff/im_planar.tif"
convert "$t/rgb.png" -colors 7 -type palette "$out/tiff/im_palette.tif"
convert "$t/rgb.png" \( "$t/rgb.png" -flip \) "$out/tiff/im_2pages.tif"
oiiotool "$t/rgb.png" -d float -o "$out/tiff/oiio_float.tif"
oiiotool "$t/rgb.png" -d half -o "$out/exr/oiio_half.exr"
oiiotool "$t/rgb.png" -d float --compression piz -o "$out/exr/oiio_float_piz.exr"
convert "$t/rgb.png" -colors 50 "$out/gif/im_rgb.gif"
convert -delay 10 "$t/rgb.png" \( "$t/rgb.png" -flop \) -colors 60 "$out/gif/im_2frames.gif"
convert "$t/rgb.png" -colors 50 -interlace GIF "$out/gif/im_interlaced.gif"
convert "$t/rgba.png" -define webp:lossless=true "$out/webp/im_rgba_lossless.webp"
convert "$t/rgb.png" -quality 80 "$out/webp/im_rgb_lossy.webp"
oiiotool "$t/rgb.png" -o "$out/tga/oiio_rgb.tga"
oiiotool "$t/rgba.png" --compression rle -o "$out/tga/oiio_rgba_rle.tga"
convert "$t/rgb.png" -colors 7 -type palette -compress none "$out/tga/im_palette.tga"
convert "$t/rgb.png" "$out/bmp/im_rgb24.bmp"
convert "$t/rgba.png" "$out/bmp/im_rgba32.bmp"
convert "$t/rgb.png" -colors 200 -type palette -compress rle "$out/bmp/im_rle8.bmp"
convert "$t/rgb.png" -colors 12 -type palette -compress rle "$out/bmp/im_rle4.bmp"
convert "$t/rgb.png" -define bmp:subtype=RGB565 "$out/bmp/im_rgb565.bmp"
convert "$t/rgb.png" -monochrome "$out/bmp/im_bilevel.bmp"
oiiotool "$t/rgb.png" -o "$out/bmp/oiio_rgb24.bmp"
convert "$t/rgba.png" "$out/jp2/im_rgba8.jp2"
convert "$t/rgb.png" -depth 16 "$out/jp2/im_rgb16.j2k"
convert "$t/rgb.png" -colorspace gray -depth 12 "$out/jp2/im_grey12.jp2"
convert "$t/rgba.png" -colorspace gray "$out/jp2/im_grey_alpha8.jp2"
convert "$t/rgb.png" "$out/hdr/im_rgb.hdr"
oiiotool "$t/rgb.png" -o "$out/hdr/oiio_rgb.hdr"
