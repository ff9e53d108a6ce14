import { BreakpointLines, type LineMark } from "./BreakpointLines";
import { make } from "./dom";

/** What the gutter is made of. */
export interface GutterElements {
    /** Where the numbers of the lines go. */
    readonly numbers: HTMLElement;
    /** What is written in, a line of which is as high as a number. */
    readonly area: HTMLTextAreaElement;
    /** Holds the field for a condition, and is hidden while that is not asked for. */
    readonly conditionRow: HTMLElement;
    readonly conditionLine: HTMLElement;
    readonly condition: HTMLInputElement;
}

/**
 * The numbers of the lines beside a text that is being written. A click on one sets or clears a breakpoint, a click
 * with the other button asks for its condition; F9 and Shift+F9 do the same for the line of the cursor.
 */
export class Gutter {
    readonly #lines = new BreakpointLines();
    readonly #elements: GutterElements;
    #text = "";
    /** Whose condition is being asked for. */
    #conditionLine: number | undefined;

    constructor(elements: GutterElements) {
        this.#elements = elements;
        const { numbers, area, condition } = elements;
        numbers.addEventListener("click", (event) => {
            const line = lineOf(event);
            if (line !== undefined) {
                this.#toggle(line);
            }
        });
        numbers.addEventListener("contextmenu", (event) => {
            const line = lineOf(event);
            if (line !== undefined) {
                event.preventDefault();
                this.#askForCondition(line);
            }
        });
        // The cursor stays where it is.
        numbers.addEventListener("mousedown", (event) => {
            event.preventDefault();
        });
        area.addEventListener("scroll", () => {
            numbers.scrollTop = area.scrollTop;
        });
        area.addEventListener("keydown", (event) => {
            if (event.key === "F9") {
                event.preventDefault();
                const line = area.value.slice(0, area.selectionStart).split("\n").length;
                if (event.shiftKey) {
                    this.#askForCondition(line);
                } else {
                    this.#toggle(line);
                }
            }
        });
        condition.addEventListener("keydown", (event) => {
            if (event.key === "Enter" || event.key === "Escape") {
                event.preventDefault(); // nothing runs
                this.#closeCondition(event.key === "Enter");
                area.focus();
            }
        });
        condition.addEventListener("blur", () => {
            this.#closeCondition(true);
        });
        this.#render();
    }

    /** The breakpoints, in the order of their lines. */
    get marks(): readonly LineMark[] {
        return this.#lines.marks;
    }

    /** The text has changed, or another is shown in its place, whose lines have no breakpoints yet. */
    update(change: "edited" | "replaced"): void {
        const { value } = this.#elements.area;
        if (change === "edited") {
            this.#lines.follow(this.#text, value);
        } else {
            this.#lines.clear();
        }
        this.#text = value;
        this.#render();
    }

    #toggle(line: number): void {
        this.#lines.toggle(line);
        this.#render();
    }

    #askForCondition(line: number): void {
        const { conditionRow, conditionLine, condition } = this.#elements;
        this.#conditionLine = line;
        conditionLine.textContent = String(line);
        condition.value = this.#lines.conditionOf(line) ?? "";
        conditionRow.hidden = false;
        condition.focus();
    }

    #closeCondition(isMeant: boolean): void {
        const line = this.#conditionLine;
        this.#conditionLine = undefined;
        this.#elements.conditionRow.hidden = true;
        if (line !== undefined && isMeant) {
            this.#lines.setCondition(line, this.#elements.condition.value);
            this.#render();
        }
    }

    #render(): void {
        const { numbers, area } = this.#elements;
        const count = area.value.split("\n").length;
        while (numbers.children.length > count) {
            numbers.lastElementChild?.remove();
        }
        while (numbers.children.length < count) {
            const button = make("button", "line-number", String(numbers.children.length + 1));
            button.type = "button";
            button.tabIndex = -1; // by the keyboard there is F9
            numbers.append(button);
        }
        [...numbers.children].forEach((button, index) => {
            const line = index + 1;
            const condition = this.#lines.conditionOf(line);
            const isSet = condition !== undefined;
            button.setAttribute("aria-pressed", String(isSet));
            button.setAttribute("aria-label", `Breakpoint on line ${String(line)}`);
            button.classList.toggle("is-conditional", isSet && condition !== "");
            button.setAttribute(
                "title",
                isSet && condition !== "" ? `Stops here if ${condition}` : isSet ? "Stops here" : "",
            );
        });
        numbers.scrollTop = area.scrollTop;
    }
}

function lineOf({ target }: Event): number | undefined {
    const button = target instanceof Element ? target.closest("button") : null;
    return button ? Number(button.textContent) : undefined;
}
