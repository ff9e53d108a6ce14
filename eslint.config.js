import { fileURLToPath, URL } from "node:url";

import eslint from "@eslint/js";
import tseslint from "typescript-eslint";

export default tseslint.config(
    { ignores: ["build/**", "**/dist/**", "**/node_modules/**"] },
    eslint.configs.recommended,
    {
        // Plain scripts for Node.js; the compiler knows the names in TypeScript.
        files: ["**/*.{js,mjs}"],
        languageOptions: {
            globals: Object.fromEntries(
                [
                    "Buffer",
                    "URL",
                    "clearTimeout",
                    "console",
                    "fetch",
                    "performance",
                    "process",
                    "setTimeout",
                ].map((name) => [name, "readonly"]),
            ),
        },
    },
    {
        files: ["**/*.ts"],
        extends: [tseslint.configs.strictTypeChecked],
        languageOptions: {
            parserOptions: {
                projectService: true,
                tsconfigRootDir: fileURLToPath(new URL(".", import.meta.url)),
            },
        },
        rules: {
            "@typescript-eslint/restrict-template-expressions": ["error", { allowNumber: true }],
            "@typescript-eslint/consistent-type-imports": "error",
        },
    },
);
