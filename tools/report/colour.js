"use strict";
// Colours: maps of values to colours that are even to the eye and to colour-blind eyes, and the palette of the theme.
// The maps are computed in Oklab. Lightness rises or falls in one direction only, so that they read in grey as well;
// hues run from blue to yellow or orange, a pair that the common kinds of colour-blindness keep apart.
(() => {
  const toByte = (linear) => {
    const v = qav.clamp(linear, 0, 1);
    return Math.round(255 * (v <= 0.0031308 ? 12.92 * v : 1.055 * v ** (1 / 2.4) - 0.055));
  };

  /** Oklab lightness 0..1, chroma and hue in degrees as [red, green, blue] 0..255. */
  function oklch([lightness, chroma, hue]) {
    const a = chroma * Math.cos((hue * Math.PI) / 180);
    const b = chroma * Math.sin((hue * Math.PI) / 180);
    const l = (lightness + 0.3963377774 * a + 0.2158037573 * b) ** 3;
    const m = (lightness - 0.1055613458 * a - 0.0638541728 * b) ** 3;
    const s = (lightness - 0.0894841775 * a - 1.291485548 * b) ** 3;
    return [
      toByte(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
      toByte(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
      toByte(-0.0041960863 * l - 0.7034186147 * m + 1.707614701 * s),
    ];
  }

  // Pixels are stored as the canvas stores them on a little-endian machine; others are not browsers' machines.
  const pixel = ([r, g, b]) => ((255 << 24) | (b << 16) | (g << 8) | r) >>> 0;

  /** 256 pixels along the stops [place 0..1, lightness, chroma, hue]. */
  function ramp(stops) {
    const pixels = new Uint32Array(256);
    for (let i = 0; i < 256; i++) {
      const t = i / 255;
      let next = 1;
      while (next < stops.length - 1 && stops[next][0] < t) next++;
      const [from, to] = [stops[next - 1], stops[next]];
      const share = qav.clamp((t - from[0]) / (to[0] - from[0] || 1), 0, 1);
      pixels[i] = pixel(oklch([1, 2, 3].map((k) => from[k] + share * (to[k] - from[k]))));
    }
    return pixels;
  }

  // More is more ink: darker on paper, brighter on a dark screen.
  const RAMPS = {
    light: {
      amount: ramp([
        [0, 0.965, 0.035, 105],
        [0.3, 0.84, 0.085, 120],
        [0.65, 0.6, 0.09, 215],
        [1, 0.27, 0.11, 270],
      ]),
      // 0.5 is the threshold: below it pale to blue, above it amber to deep red.
      threshold: ramp([
        [0, 0.97, 0.012, 250],
        [0.5, 0.74, 0.085, 245],
        [0.502, 0.8, 0.145, 78],
        [1, 0.4, 0.15, 35],
      ]),
      difference: ramp([
        [0, 0.38, 0.14, 260],
        [0.5, 0.97, 0.0, 250],
        [0.5001, 0.97, 0.0, 75],
        [1, 0.55, 0.15, 55],
      ]),
    },
    dark: {
      amount: ramp([
        [0, 0.26, 0.05, 275],
        [0.4, 0.48, 0.09, 235],
        [0.75, 0.75, 0.09, 150],
        [1, 0.96, 0.1, 105],
      ]),
      threshold: ramp([
        [0, 0.23, 0.02, 255],
        [0.5, 0.5, 0.09, 250],
        [0.502, 0.66, 0.15, 55],
        [1, 0.95, 0.11, 95],
      ]),
      difference: ramp([
        [0, 0.75, 0.11, 245],
        [0.5, 0.25, 0.0, 250],
        [0.5001, 0.25, 0.0, 75],
        [1, 0.82, 0.13, 75],
      ]),
    },
  };

  const dark = matchMedia("(prefers-color-scheme: dark)");
  let chosen = "auto"; // or "light", "dark"
  let printing = false;

  qav.theme = {
    name: () => (printing ? "light" : chosen !== "auto" ? chosen : dark.matches ? "dark" : "light"),
    choice: () => chosen,
    choose(name) {
      chosen = name;
      qav.theme.apply();
    },
    print(on) {
      printing = on;
      qav.theme.apply();
    },
    apply() {
      document.documentElement.dataset.theme = qav.theme.name();
      cache = {};
      qav.theme.changed();
    },
    changed() {}, // main.js puts the redrawing here
  };
  dark.addEventListener("change", () => qav.theme.apply());

  qav.ramp = (name) => RAMPS[qav.theme.name()][name];
  /** The map as a CSS gradient from left to right. */
  qav.gradient = (name) => {
    const stops = [];
    for (let i = 0; i < 256; i += 15) {
      const p = qav.ramp(name)[i];
      stops.push(`rgb(${p & 255} ${(p >> 8) & 255} ${(p >> 16) & 255}) ${((100 * i) / 255).toFixed(0)}%`);
    }
    return `linear-gradient(to right, ${stops.join(", ")})`;
  };

  let cache = {};
  /** A colour of the style sheet by the name of its property. */
  qav.ink = (name) =>
    (cache[name] ??= getComputedStyle(document.documentElement)
      .getPropertyValue("--" + name)
      .trim());
  qav.pixelCss = (p) => `rgb(${p & 255} ${(p >> 8) & 255} ${(p >> 16) & 255})`;
})();
