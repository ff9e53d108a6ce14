import "./style.css";

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
const session = new Session(new URL("./", location.href).href, showState);

async function run(command: string): Promise<void> {
    welcome.hidden = true;
    const cell = transcript.add(command);
    try {
        await session.run(command, (chunk) => {
            transcript.append(cell, chunk);
        });
        transcript.finish(cell);
    } catch (error) {
        transcript.finish(cell, error instanceof Error ? error : new Error(String(error)));
    }
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
    connectForm.hidden = state.kind !== "ended";
    if (state.kind === "ended") {
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

byId("clear", HTMLButtonElement).addEventListener("click", () => {
    transcript.clear();
    editor.focus();
});

addEventListener("keydown", (event) => {
    if (event.ctrlKey && event.key === "l") {
        event.preventDefault();
        transcript.clear();
    }
});

addEventListener("pagehide", () => {
    session.stop();
});

void session.start(token);
