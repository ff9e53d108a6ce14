import type { Message } from "./Driver.js";

/** One long-polling request by hand: its status and, where there are any, its replies. */
export async function poll(
    endpoint: string,
    messages: readonly object[],
    signal?: AbortSignal,
): Promise<{ status: number; replies: Message[] }> {
    const response = await fetch(endpoint, {
        method: "POST",
        headers: { "Content-Type": "application/json" },
        body: JSON.stringify(messages),
        ...(signal ? { signal } : {}),
    });
    const isJson = response.headers.get("Content-Type")?.startsWith("application/json");
    return { status: response.status, replies: isJson ? ((await response.json()) as Message[]) : [] };
}
