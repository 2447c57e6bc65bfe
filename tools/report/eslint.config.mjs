// For ESLint, where it is installed: the scripts of the report share one object, and otherwise only what browsers offer.
const browser = [
  "ImageData",
  "ResizeObserver",
  "WheelEvent",
  "addEventListener",
  "atob",
  "document",
  "getComputedStyle",
  "matchMedia",
  "requestAnimationFrame",
  "window",
];

export default [
  {
    files: ["*.js"],
    languageOptions: {
      ecmaVersion: 2022,
      sourceType: "script",
      globals: { qav: "readonly", ...Object.fromEntries(browser.map((name) => [name, "readonly"])) },
    },
    rules: {
      eqeqeq: "error",
      "no-dupe-keys": "error",
      "no-implicit-globals": ["error", { lexicalBindings: false }],
      "no-redeclare": ["error", { builtinGlobals: false }],
      "no-shadow": "error",
      "no-undef": "error",
      "no-unreachable": "error",
      "no-unused-vars": "error",
      "no-var": "error",
      "prefer-const": "error",
      strict: ["error", "global"],
    },
  },
];
