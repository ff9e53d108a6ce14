import { fileURLToPath, URL } from "node:url";

import eslint from "@eslint/js";
import tseslint from "typescript-eslint";

export default tseslint.config(
    { ignores: ["build/**", "**/dist/**", "**/node_modules/**"] },
    eslint.configs.recommended,
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
