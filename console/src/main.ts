import "./style.css";

import { ActivityMonitor } from "./ActivityMonitor";
import { ActivityView } from "./ActivityView";
import type { Cell } from "./Cell";
import { byId } from "./dom";
import { Editor } from "./Editor";
import { Session, type SessionState } from "./Session";
import { keepToken, takeToken } from "./token";
import { Transcript } from "./Transcript";

const status = byId("status", HTMLElement);
const notice = byId("notice", HTMLElement);
const connectForm = byId("connect", HTMLFormElement);
const tokenField = byId("token-field", HTMLElement);
const tokenInput = byId("token", HTMLInputElement);
const welcome = byId("welcome", HTMLElement);
const runButton = byId("run", HTMLButtonElement);

const transcript = new Transcript(byId("transcript", HTMLElement), byId("scroller", HTMLElement));
const editor = new Editor(
    byId("command", HTMLTextAreaElement),
    byId("prompt", HTMLFormElement),
    (command) => {
        void run(command);
    },
);
/** Cells by the identifiers of their requests, for text that comes after the end. */
const cells = new Map<string, Cell>();
const session = new Session(new URL("./", location.href).href, {
    onState: showState,
    onLateText: (message) => {
        const cell = cells.get(message.requestID);
        if (cell) {
            transcript.append(cell, message);
        }
    },
    onEngineText: (chunk) => {
        welcome.hidden = true;
        transcript.appendEngineText(chunk);
    },
    onEngineTextFailed: (error) => {
        transcript.failEngineText(error);
    },
});
const activityView = new ActivityView(byId("activity", HTMLElement), {
    stop,
    interrupt: () => session.interrupt(),
});
const monitor = new ActivityMonitor<Cell>(
    { list: () => session.listCommands(), mark: () => session.mark() },
    (activity) => {
        activityView.show(activity);
        for (const { own } of activity.running) {
            own?.showStage("running");
        }
        for (const { own } of activity.waiting) {
            own?.showStage("waiting");
        }
    },
);
/** The requests of the cells that have not ended. */
const requests = new Map<Cell, ReturnType<Session["run"]>>();

async function run(command: string): Promise<void> {
    welcome.hidden = true;
    const cell = transcript.add(command, stop);
    try {
        const request = monitor.send(cell, () =>
            session.run(command, cell.output.columns, (chunk) => {
                transcript.append(cell, chunk);
            }),
        );
        requests.set(cell, request);
        forgetRemovedCells();
        cells.set(request.requestID, cell);
        await request;
        transcript.finish(cell);
    } catch (error) {
        transcript.finish(cell, asError(error));
    } finally {
        requests.delete(cell);
        monitor.ended(cell);
    }
}

function forgetRemovedCells(): void {
    for (const [requestID, cell] of cells) {
        if (!transcript.has(cell)) {
            cells.delete(requestID);
        }
    }
}

/** Asks the engine to stop the cell's command. How it ends is told by the command's own answer. */
function stop(cell: Cell): void {
    const request = requests.get(cell);
    if (request) {
        cell.showStopRequested();
        request.cancel({ interrupt: true }).catch((error: unknown) => {
            cell.showStopFailed(asError(error));
        });
    }
}

function asError(error: unknown): Error {
    return error instanceof Error ? error : new Error(String(error));
}

function showState(state: SessionState): void {
    const texts = {
        connecting: "connecting",
        attached: "attached",
        lost: "reconnecting",
        ended: "not connected",
    };
    status.textContent = texts[state.kind];
    status.dataset["state"] = state.kind;
    editor.enabled = state.kind === "attached";
    runButton.disabled = !editor.enabled;
    monitor.isAttached = editor.enabled;
    connectForm.hidden = state.kind !== "ended";
    if (state.kind === "ended") {
        cells.clear(); // the next client counts its requests anew
        notice.textContent = state.reason;
        tokenField.hidden = !state.wantsToken;
        if (state.wantsToken) {
            tokenInput.focus();
        }
    } else if (state.kind === "attached") {
        editor.focus();
    }
}

let token = takeToken(window);

connectForm.addEventListener("submit", (event) => {
    event.preventDefault();
    if (tokenInput.value !== "") {
        token = tokenInput.value.trim();
        tokenInput.value = "";
        keepToken(token, sessionStorage);
    }
    void session.start(token);
});

const engineTextBox = byId("engine-text", HTMLInputElement);
const engineTextKey = "showsEngineText";
engineTextBox.checked = sessionStorage.getItem(engineTextKey) !== null;
session.wantsEngineText = engineTextBox.checked;
engineTextBox.addEventListener("change", () => {
    session.wantsEngineText = engineTextBox.checked;
    if (engineTextBox.checked) {
        sessionStorage.setItem(engineTextKey, "");
    } else {
        sessionStorage.removeItem(engineTextKey);
    }
});

byId("clear", HTMLButtonElement).addEventListener("click", () => {
    transcript.clear();
    editor.focus();
});

addEventListener("keydown", (event) => {
    if (event.ctrlKey && event.key === "l") {
        event.preventDefault();
        transcript.clear();
    } else if (event.ctrlKey && event.key === "c" && !hasSelection()) {
        const [oldest] = requests.keys();
        if (oldest) {
            event.preventDefault();
            stop(oldest);
        }
    }
});

/** Whether the keys for copying have something to copy. */
function hasSelection(): boolean {
    const { activeElement } = document;
    return activeElement instanceof HTMLTextAreaElement
        ? activeElement.selectionStart !== activeElement.selectionEnd
        : getSelection()?.isCollapsed === false;
}

monitor.isVisible = !document.hidden;
document.addEventListener("visibilitychange", () => {
    monitor.isVisible = !document.hidden;
});

addEventListener("pagehide", () => {
    session.stop();
});

void session.start(token);
