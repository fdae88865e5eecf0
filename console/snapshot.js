// The status snapshot (network.cgi?jsongetupdate=) as a table, on demand and every 5 s;
// values that changed since the last refresh are marked.
import { element, runCommands, snapshotObject } from './api.js';

const PERIOD_MS = 5000;

export function setupSnapshot() {
  const body = document.querySelector('#snapshot-table tbody');
  const status = document.getElementById('snapshot-status');
  const auto = document.getElementById('snapshot-auto');
  let previous = null;
  let timer = null;
  let busy = false;

  function show(values) {
    body.replaceChildren();
    for (const key of Object.keys(values).sort()) {
      const text = JSON.stringify(values[key]);
      const changed = previous !== null && previous[key] !== text;
      const row = element('tr', changed ? 'changed' : '');
      row.dataset.member = key;
      row.append(element('th', '', key), element('td', '', typeof values[key] === 'string' ? values[key] : text));
      body.append(row);
    }
    previous = Object.fromEntries(Object.keys(values).map((k) => [k, JSON.stringify(values[k])]));
  }

  async function refresh() {
    if (busy) return;
    busy = true;
    const answer = await runCommands([{ name: 'jsongetupdate', value: '' }]);
    busy = false;
    const values = answer.status === 200 ? snapshotObject(answer.text) : null;
    if (values === null) {
      status.textContent = `no snapshot (HTTP ${answer.status}): ${answer.text.slice(0, 200)}`;
      status.className = 'status failed';
      return;
    }
    show(values);
    status.textContent = `${Object.keys(values).length} members at ${new Date().toLocaleTimeString()} in ${answer.ms} ms`;
    status.className = 'status done';
    document.body.dataset.snapshotLoaded = 'yes';
  }

  function schedule() {
    clearInterval(timer);
    timer = auto.checked ? setInterval(refresh, PERIOD_MS) : null;
  }

  document.getElementById('snapshot-refresh').addEventListener('click', refresh);
  auto.addEventListener('change', schedule);
  schedule();
  return refresh();
}
