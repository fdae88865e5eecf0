// The command runner: search the 152 commands (commands.json), read what a value means,
// send one command or a batch, see each outcome line coloured and the raw answer.
import { element, readable, runCommands, commandQuery, splitOutcomes } from './api.js';

function matches(command, words) {
  const haystack = [command.name, command.family, command.summary, command.value].join(' ').toLowerCase();
  return words.every((w) => haystack.includes(w));
}

// The metadata's texts mark code with backticks (for the reference); shown plain here.
function plain(text) {
  return String(text).replace(/`/g, '');
}

function describe(command) {
  const box = document.createDocumentFragment();
  box.append(element('h3', 'command-name', command.name));
  box.append(element('p', 'family', command.family));
  box.append(element('p', 'summary', plain(command.summary)));
  const facts = element('dl', 'facts');
  const effects = command.effects;
  const changes = [];
  if (effects.stores.length) changes.push('stores ' + effects.stores.join(', '));
  if (effects.commits) changes.push('commits nvram');
  if (effects.restarts.length) changes.push('restarts ' + effects.restarts.join(', '));
  if (effects.reboots) changes.push('reboots the gateway');
  for (const other of effects.other || []) changes.push(other);
  const rows = [
    ['value', command.value],
    ['answer', command.answer],
    ['outcome', command.outcome],
    ['changes', changes.length ? changes.join('; ') : 'nothing'],
    ['calls', command.calls.map((c) => `${c.daemon} ${c.interface}.${c.member}`).join('\n') || 'no daemon'],
    ['example', `${command.name}=${command.example.value}  →  ${command.example.answer}`],
  ];
  for (const [term, text] of rows) facts.append(element('dt', '', term), element('dd', '', plain(text)));
  box.append(facts);
  if (command.confirm) box.append(element('p', 'warning', 'Asks for confirmation: ' + (changes.join('; ') || 'changes the gateway')));
  return box;
}

export function setupRunner(commands, history) {
  const search = document.getElementById('command-search');
  const list = document.getElementById('command-list');
  const details = document.getElementById('command-details');
  const form = document.getElementById('command-form');
  const valueInput = document.getElementById('command-value');
  const batchBox = document.getElementById('batch');
  const batchList = document.getElementById('batch-list');
  const byName = new Map(commands.map((c) => [c.name, c]));
  let selected = null;
  let batch = [];

  function showList() {
    const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
    list.replaceChildren();
    for (const command of commands) {
      if (!matches(command, words)) continue;
      const item = element('li');
      const button = element('button', 'command-pick', command.name);
      button.type = 'button';
      button.dataset.command = command.name;
      button.title = plain(command.summary);
      item.append(button, element('span', 'command-summary', plain(command.summary)));
      list.append(item);
    }
  }

  function select(name) {
    selected = byName.get(name) || null;
    details.replaceChildren(selected ? describe(selected) : element('p', 'note', 'Pick a command.'));
    form.hidden = selected === null;
    if (selected) valueInput.value = selected.example.value;
  }

  function showBatch() {
    batchList.replaceChildren(...batch.map((p) => element('li', '', `${p.name}=${p.value}`)));
    batchBox.hidden = batch.length === 0;
  }

  async function send(pairs) {
    const risky = pairs.map((p) => byName.get(p.name)).filter((c) => c && c.confirm);
    if (risky.length && !window.confirm(`Really send ${risky.map((c) => c.name).join(', ')}? ` +
        risky.map((c) => c.summary).join(' '))) {
      return;
    }
    const answer = await runCommands(pairs);
    const parts = splitOutcomes(pairs.map((p) => p.name), answer.text);
    showResult(answer, parts);
    const worst = parts.some((p) => p.outcome !== 'done') ? 'failed' : 'done';
    history.add({
      request: 'network.cgi?' + commandQuery(pairs),
      status: answer.status,
      ms: answer.ms,
      summary: parts.map((p) => p.line || p.outcome).join(', ').slice(0, 200),
      outcome: worst,
    });
  }

  function showResult(answer, parts) {
    document.getElementById('result').hidden = false;
    document.getElementById('result-meta').textContent = `HTTP ${answer.status} in ${answer.ms} ms`;
    const outcomes = document.getElementById('result-outcomes');
    outcomes.replaceChildren();
    for (const part of parts) {
      const block = element('div', 'outcome-block');
      if (part.output) block.append(element('pre', 'output', readable(part.output)));
      block.append(element('div', 'outcome ' + part.outcome, part.line || `(${part.outcome}: no outcome line)`));
      outcomes.append(block);
    }
    document.getElementById('result-raw').textContent = answer.text;
  }

  list.addEventListener('click', (event) => {
    const button = event.target.closest('button.command-pick');
    if (button) select(button.dataset.command);
  });
  search.addEventListener('input', showList);
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    if (selected) send([{ name: selected.name, value: valueInput.value }]);
  });
  document.getElementById('command-add').addEventListener('click', () => {
    if (!selected) return;
    batch.push({ name: selected.name, value: valueInput.value });
    showBatch();
  });
  document.getElementById('batch-send').addEventListener('click', () => { if (batch.length) send(batch.slice()); });
  document.getElementById('batch-clear').addEventListener('click', () => { batch = []; showBatch(); });
  showList();
}
