import type { Activity } from "./ActivityMonitor";
import type { Cell } from "./Cell";
import { shortId, type EngineCommand } from "./CommandTracker";
import { make } from "./dom";
import { firstLine } from "./firstLine";

/** More commands than these are counted, not listed. */
const maxRows = 4;

/** What the buttons do. */
export interface ActivityActions {
    stop(cell: Cell): void;
    /** Interrupts what the engine runs, whoever sent it. */
    interrupt(): Promise<void>;
}

interface Row {
    readonly element: HTMLElement;
    /** @param isOutermost whether it is what an interrupt stops */
    update(isRunning: boolean, isOutermost: boolean): void;
}

/** The list of what the engine runs and of what waits. Rows stay as they are while their command does. */
export class ActivityView {
    readonly #section: HTMLElement;
    readonly #list = make("ul", "commands");
    readonly #more = make("p", "commands-more");
    readonly #actions: ActivityActions;
    #rows = new Map<string, Row>();

    constructor(section: HTMLElement, actions: ActivityActions) {
        this.#section = section;
        this.#actions = actions;
        section.append(this.#list, this.#more);
    }

    show({ running, waiting, answers }: Activity<Cell>): void {
        const listed = [
            ...running.map((command, place) => ({ command, isRunning: true, isOutermost: place === 0 })),
            ...waiting.map((command) => ({ command, isRunning: false, isOutermost: false })),
        ];
        const rows = new Map<string, Row>();
        for (const { command, isRunning, isOutermost } of listed.slice(0, maxRows)) {
            // A command's text may be found out later than the command.
            const key = `${command.id} ${command.own ? "own" : ""}`;
            const row = this.#rows.get(key) ?? this.#makeRow(command);
            row.update(isRunning, isOutermost);
            rows.set(key, row);
        }
        if (rows.size === 0 && !answers) {
            rows.set("silent", this.#rows.get("silent") ?? this.#makeSilentRow());
        }
        for (const [key, row] of this.#rows) {
            if (!rows.has(key)) {
                row.element.remove();
            }
        }
        [...rows.values()].forEach(({ element }, place) => {
            if (this.#list.children[place] !== element) {
                this.#list.insertBefore(element, this.#list.children[place] ?? null);
            }
        });
        this.#rows = rows;

        const more = listed.length - Math.min(listed.length, maxRows);
        const notes = [
            more > 0 ? `and ${more.toLocaleString("en")} more` : "",
            !answers && listed.length > 0 ? "inside one long call, so this may be out of date" : "",
        ];
        this.#more.textContent = notes.filter((note) => note !== "").join("; ");
        this.#more.hidden = this.#more.textContent === "";
        this.#section.hidden = rows.size === 0;
    }

    #makeRow({ id, own }: EngineCommand<Cell>): Row {
        const stage = make("span", "stage");
        const button = make("button", "quiet");
        button.type = "button";
        let isAsked = false;
        const what = own
            ? make("code", "what", firstLine(own.command))
            : make("span", "what", `${shortId(id)}, from elsewhere`);
        what.title = own ? own.command : `Command ${id}, which another page or program has sent`;
        const element = make("li", "", stage, what, button);
        const update = (isRunning: boolean, isOutermost: boolean) => {
            stage.textContent = isAsked && !own ? "interrupt requested" : isRunning ? "running" : "waiting";
            element.classList.toggle("is-running", isRunning);
            button.textContent = own ? "Stop" : "Interrupt";
            button.hidden = own === undefined && !isOutermost;
        };
        button.addEventListener("click", () => {
            if (own) {
                this.#actions.stop(own);
            } else {
                isAsked = true;
                update(true, true);
                this.#interrupt(stage);
            }
        });
        return { element, update };
    }

    /** The page was opened while the engine is busy, and knows no more than that. */
    #makeSilentRow(): Row {
        const stage = make("span", "stage", "busy");
        const button = make("button", "quiet", "Interrupt");
        button.type = "button";
        const element = make(
            "li",
            "is-running",
            stage,
            make("span", "what", "The engine is inside one long call and does not answer."),
            button,
        );
        button.addEventListener("click", () => {
            stage.textContent = "interrupt requested";
            this.#interrupt(stage);
        });
        return { element, update: () => undefined };
    }

    #interrupt(stage: HTMLElement): void {
        this.#actions.interrupt().catch((error: unknown) => {
            stage.textContent = `not interrupted: ${error instanceof Error ? error.message : String(error)}`;
        });
    }
}
