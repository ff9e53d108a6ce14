import type { Breakpoint } from "yvm-client";

import { FieldError, fieldsOf, readFields, type BreakpointKind, type FieldName } from "./breakpointFields";
import { make } from "./dom";

/** A file that can be named, with something that tells people which it is. */
export interface KnownFile {
    readonly name: string;
    readonly label: string;
}

/** What the form needs. */
export interface BreakpointFormActions {
    /** Rejects if it cannot be set. */
    set(breakpoint: Breakpoint): Promise<void>;
    /** What to propose as a file, best first. */
    knownFiles(): readonly KnownFile[];
}

const kinds: Readonly<Record<BreakpointKind, string>> = {
    line: "At a line",
    function: "In a function",
    file: "Anywhere in a file",
    ERROR: "At one type of error that nobody catches",
    CAUGHT_ERROR: "At one type of error that is caught",
    WARNING: "At one type of warning",
};

const fields: Readonly<Record<FieldName, { readonly label: string; readonly hint: string }>> = {
    file: { label: "File", hint: "/home/me/fit.py or <command 3>" },
    line: { label: "Line", hint: "12" },
    lambda: { label: "Lambda", hint: "any" },
    function: { label: "Function", hint: "run or Fit.run" },
    condition: { label: "Only if", hint: "n > 3" },
    messageId: { label: "Type", hint: "ValueError" },
};

const lambdaHelp = "Which lambda that begins on the line: 1 is the first, 0 none of them";

/** Asks for a breakpoint, also where no line is being written; folded away until somebody wants it. */
export class BreakpointForm {
    readonly element: HTMLElement;
    readonly #summary = make("summary", "", "Add a breakpoint");
    readonly #actions: BreakpointFormActions;
    readonly #kind = make("select", "");
    readonly #inputs = new Map<FieldName, HTMLInputElement>();
    readonly #files = make("datalist", "");
    readonly #note = make("p", "note");
    readonly #failure = make("p", "stop-failure");
    /** The engine has yet to answer. */
    #isAsking = false;

    constructor(actions: BreakpointFormActions) {
        this.#actions = actions;
        this.#kind.append(
            ...Object.entries(kinds).map(([value, text]) => {
                const option = make("option", "", text);
                option.value = value;
                return option;
            }),
        );
        this.#kind.setAttribute("aria-label", "Stop"); // without the options, which the label contains
        this.#kind.addEventListener("change", () => {
            this.#showFields();
        });
        const labels = (Object.keys(fields) as FieldName[]).map((name) => this.#makeField(name));
        this.#files.id = "known-files";
        this.#input("file").setAttribute("list", this.#files.id);
        this.#input("file").addEventListener("focus", () => {
            this.#proposeFiles();
        });
        this.#input("line").inputMode = "numeric";
        this.#input("lambda").inputMode = "numeric";
        this.#input("lambda").title = lambdaHelp;
        this.#note.setAttribute("role", "status");
        this.#failure.setAttribute("role", "alert");
        const button = make("button", "quiet", "Add");
        const form = make("form", "", make("label", "is-wide", make("span", "", "Stop"), this.#kind));
        form.append(...labels, this.#files, button, make("div", "is-wide", this.#note, this.#failure));
        form.noValidate = true;
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            void this.#submit();
        });
        form.addEventListener("input", () => {
            this.#tell("", "");
        });
        this.element = make("details", "breakpoint-form", this.#summary, form);
        this.#showFields();
    }

    /** The breakpoints are others now, so what was said of the last one is no news. */
    clearNote(): void {
        this.#note.textContent = "";
    }

    focus(): void {
        this.#summary.focus();
    }

    async #submit(): Promise<void> {
        if (this.#isAsking) {
            return;
        }
        this.#tell("", "");
        this.#isAsking = true;
        try {
            const setting = this.#actions.set(this.#read());
            this.#tell("The engine is asked.", "");
            await setting;
            this.#tell("Set.", "");
            // In the same file there may be more to stop at.
            for (const [name, input] of this.#inputs) {
                input.value = name === "file" ? input.value : "";
            }
        } catch (error) {
            this.#tell("", error instanceof Error ? error.message : String(error));
            this.#failure.scrollIntoView({ block: "nearest" });
            if (error instanceof FieldError) {
                const input = this.#input(error.field);
                input.setAttribute("aria-invalid", "true");
                input.focus();
            }
        } finally {
            this.#isAsking = false;
        }
    }

    /** @throws FieldError if it cannot be meant */
    #read(): Breakpoint {
        const value = (name: FieldName) => this.#input(name).value;
        return readFields(this.#kind.value as BreakpointKind, {
            file: value("file"),
            line: value("line"),
            lambda: value("lambda"),
            function: value("function"),
            condition: value("condition"),
            messageId: value("messageId"),
        });
    }

    #tell(note: string, failure: string): void {
        this.#note.textContent = note;
        this.#failure.textContent = failure;
        for (const input of this.#inputs.values()) {
            input.removeAttribute("aria-invalid");
        }
    }

    #showFields(): void {
        const shown = fieldsOf[this.#kind.value as BreakpointKind];
        for (const [name, { parentElement }] of this.#inputs) {
            if (parentElement) {
                parentElement.hidden = !shown.includes(name);
            }
        }
        this.#input("messageId").placeholder = this.#kind.value === "WARNING" ? "UserWarning" : "ValueError";
        this.#tell("", "");
    }

    #proposeFiles(): void {
        this.#files.replaceChildren(
            ...this.#actions.knownFiles().map(({ name, label }) => {
                const option = make("option", "");
                option.value = name;
                option.label = label;
                return option;
            }),
        );
    }

    #makeField(name: FieldName): HTMLElement {
        const { label, hint } = fields[name];
        const input = make("input", "");
        input.type = "text";
        input.placeholder = hint;
        input.spellcheck = false;
        input.autocomplete = "off";
        input.setAttribute("autocapitalize", "off");
        this.#inputs.set(name, input);
        const isNarrow = name === "line" || name === "lambda";
        return make("label", isNarrow ? "" : "is-wide", make("span", "", label), input);
    }

    #input(name: FieldName): HTMLInputElement {
        return this.#inputs.get(name) as HTMLInputElement;
    }
}
