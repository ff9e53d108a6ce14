import { make } from "./dom";
import type { Variable } from "./Session";
import { sizeText } from "./sizeText";

/** More variables than these are counted, not listed. */
const maxRows = 500;

interface Row {
    readonly element: HTMLElement;
    readonly button: HTMLElement;
    readonly type: HTMLElement;
    readonly size: HTMLElement;
    /** The text of its value, while it is shown. */
    value: HTMLElement | undefined;
}

/** The list of variables; each opens to show the start of its value. */
export class VariablesView {
    readonly #list = make("ul", "variable-list");
    readonly #note = make("p", "note");
    readonly #describe: (name: string) => Promise<string | undefined>;
    #rows = new Map<string, Row>();

    /**
     * @param section where the list goes
     * @param describe gives the text of a variable's value
     */
    constructor(section: HTMLElement, describe: (name: string) => Promise<string | undefined>) {
        this.#describe = describe;
        this.#list.setAttribute("role", "list"); // which a list without bullets is not to every reader
        section.append(this.#list, this.#note);
    }

    show(variables: readonly Variable[]): void {
        // What can be called was mostly written once and is rarely looked at.
        const sorted = [...variables].sort((a, b) => Number(a.isCallable) - Number(b.isCallable));
        const rows = new Map<string, Row>();
        for (const variable of sorted.slice(0, maxRows)) {
            const row = this.#rows.get(variable.name) ?? this.#makeRow(variable.name);
            setText(row.type, variable.type);
            setText(row.size, sizeText(variable));
            rows.set(variable.name, row);
            if (row.value) {
                void this.#fill(variable.name, row.value);
            }
        }
        for (const [name, { element }] of this.#rows) {
            if (!rows.has(name)) {
                element.remove();
            }
        }
        [...rows.values()].forEach(({ element }, place) => {
            if (this.#list.children[place] !== element) {
                this.#list.insertBefore(element, this.#list.children[place] ?? null);
            }
        });
        this.#rows = rows;
        const more = sorted.length - rows.size;
        this.#note.textContent =
            sorted.length === 0
                ? "No variables yet."
                : more > 0
                  ? `and ${more.toLocaleString("en")} more`
                  : "";
    }

    #makeRow(name: string): Row {
        const type = make("span", "variable-type");
        const size = make("span", "variable-size");
        const button = make("button", "variable", make("code", "", name), type, size);
        button.type = "button";
        button.setAttribute("aria-expanded", "false");
        const element = make("li", "", button);
        const row: Row = { element, button, type, size, value: undefined };
        button.addEventListener("click", () => {
            if (row.value) {
                row.value.remove();
                row.value = undefined;
            } else {
                row.value = make("pre", "variable-value");
                element.append(row.value);
                void this.#fill(name, row.value);
            }
            button.setAttribute("aria-expanded", String(row.value !== undefined));
        });
        return row;
    }

    async #fill(name: string, value: HTMLElement): Promise<void> {
        try {
            setText(value, (await this.#describe(name)) ?? "");
        } catch (error) {
            setText(value, `not known: ${error instanceof Error ? error.message : String(error)}`);
        }
    }
}

/** Touches nothing that need not be, so that a selection stays. */
function setText(element: HTMLElement, text: string): void {
    if (element.textContent !== text) {
        element.textContent = text;
    }
}
