// Calls to the gateway's resources and the reading of network.cgi's answers.

// One request; resolves to {status, text, ms} (status 0 when the request failed).
export async function request(url, init = {}) {
  const started = performance.now();
  try {
    const response = await fetch(url, Object.assign({ credentials: 'same-origin', cache: 'no-store' }, init));
    const text = await response.text();
    return { status: response.status, text, ms: Math.round(performance.now() - started) };
  } catch (error) {
    return { status: 0, text: String(error), ms: Math.round(performance.now() - started) };
  }
}

// The query of network.cgi for [{name, value}]: every value percent-encoded.
export function commandQuery(pairs) {
  return pairs.map((p) => encodeURIComponent(p.name) + '=' + encodeURIComponent(p.value)).join('&');
}

export function runCommands(pairs) {
  return request('/network.cgi?' + commandQuery(pairs));
}

const OUTCOMES = [
  ['done', ' done'],
  ['failed', ' failed'],
  ['missing', " doesn't exist"],
];

// Splits network.cgi's answer into one part per command of `names` (in order): its output
// and its outcome ("done", "failed", "missing" or "unknown" when no outcome line was found).
// Each command's outcome line is the first "<name> done|failed|doesn't exist" after the end
// of the one before it.
export function splitOutcomes(names, text) {
  const parts = [];
  let at = 0;
  for (const name of names) {
    let best = null;
    for (const [kind, tail] of OUTCOMES) {
      const line = name + tail;
      const index = text.indexOf(line, at);
      if (index >= 0 && (best === null || index < best.index)) best = { kind, index, line };
    }
    if (best === null) {
      parts.push({ name, output: text.slice(at), outcome: 'unknown', line: '' });
      at = text.length;
      continue;
    }
    parts.push({ name, output: text.slice(at, best.index), outcome: best.kind, line: best.line });
    at = best.index + best.line.length;
  }
  if (at < text.length) parts.push({ name: '', output: text.slice(at), outcome: 'unknown', line: '' });
  return parts;
}

// "<br>" line ends as line feeds, for reading (the raw answer is shown as it is elsewhere).
export function readable(output) {
  return output.replace(/<br>/g, '\n');
}

// The JSON object of the snapshot's answer ("{...}<br>jsongetupdate done"); null when the
// answer holds none.
export function snapshotObject(text) {
  const end = text.lastIndexOf('<br>jsongetupdate done');
  if (end < 0) return null;
  try {
    const value = JSON.parse(text.slice(0, end));
    return value !== null && typeof value === 'object' && !Array.isArray(value) ? value : null;
  } catch (error) {
    return null;
  }
}

// JSON text indented for reading; the text itself when it is no JSON.
export function pretty(text) {
  try {
    return JSON.stringify(JSON.parse(text), null, 2);
  } catch (error) {
    return text;
  }
}

// A new element with its class and text (textContent: nothing is read as markup).
export function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}
