// Made the ag-psd documents of tests/data/psd (ag-psd 31.0.2, from the npm registry):
//   npm install ag-psd@31.0.2 && node make_agpsd.js agpsd_effects_adjust.psd
//   node make_agpsd.js agpsd_nested_long_names.psd
// agpsd_effects_adjust: layer effects, adjustment layers and a closed set. agpsd_nested_long_names:
// open and closed sets nested three deep, layer names of 128 and 200 characters.
const fs = require('fs');
const { writePsdBuffer } = require('ag-psd');
function img(w, h, f) {
  const data = new Uint8ClampedArray(w * h * 4);
  for (let y = 0; y < h; y++) for (let x = 0; x < w; x++) {
    const [r, g, b, a] = f(x, y); const i = (y * w + x) * 4;
    data[i] = r; data[i + 1] = g; data[i + 2] = b; data[i + 3] = a;
  }
  return { width: w, height: h, data };
}
const effects = {
  width: 16, height: 12,
  children: [
    { name: 'base', left: 0, top: 0, imageData: img(16, 12, (x, y) => [x * 16, y * 20, 100, 255]) },
    { name: 'shadowed', left: 2, top: 2, imageData: img(6, 5, (x, y) => [200, 50, x * 40, 255]),
      effects: { dropShadow: [{ enabled: true, size: { units: 'Pixels', value: 3 }, distance: { units: 'Pixels', value: 2 },
                 angle: 90, opacity: 0.5, color: { r: 0, g: 0, b: 0 }, blendMode: 'multiply' }] } },
    { name: 'levels', adjustment: { type: 'levels', rgb: { shadowInput: 10, highlightInput: 240, midtoneInput: 1, shadowOutput: 0, highlightOutput: 255 } } },
    { name: 'curves', adjustment: { type: 'curves', rgb: [{ input: 0, output: 0 }, { input: 128, output: 160 }, { input: 255, output: 255 }] } },
    { name: 'closed set', opened: false, children: [
      { name: 'inner', left: 4, top: 4, imageData: img(3, 3, () => [1, 2, 3, 128]) } ] },
  ],
  imageData: img(16, 12, (x, y) => [x * 16, y * 20, 100, 255]),
};
const square = (n, v) => img(n, n, (x, y) => [v, x * 30, y * 30, 200]);
const nested = {
  width: 20, height: 20,
  children: [
    { name: 'b'.repeat(200), left: 0, top: 0, imageData: square(20, 10) },
    { name: 'outer', opened: true, children: [
      { name: 'n'.repeat(128), left: 2, top: 2, imageData: square(5, 60) },
      { name: 'middle', opened: false, children: [
        { name: 'inner', opened: true, children: [{ name: 'deep', left: 8, top: 8, imageData: square(4, 120) }] },
        { name: 'beside', left: 1, top: 12, imageData: square(6, 180) } ] } ] },
    { name: 'top', left: 10, top: 0, imageData: square(7, 240), blendMode: 'screen' },
  ],
  imageData: square(20, 90),
};
const docs = { 'agpsd_effects_adjust.psd': effects, 'agpsd_nested_long_names.psd': nested };
const name = require('path').basename(process.argv[2]);
fs.writeFileSync(process.argv[2], Buffer.from(writePsdBuffer(docs[name], { generateThumbnail: false })));
