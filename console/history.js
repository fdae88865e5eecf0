// The last calls, kept in localStorage (most recent first).
import { element } from './api.js';

const KEY = 'korvex-console-history';
const LIMIT = 25;

function load() {
  try {
    const items = JSON.parse(localStorage.getItem(KEY) || '[]');
    return Array.isArray(items) ? items : [];
  } catch (error) {
    return [];
  }
}

function render(list) {
  list.replaceChildren();
  for (const item of load()) {
    const row = element('li', 'history-item ' + (item.outcome || ''));
    row.append(element('time', 'when', new Date(item.at).toLocaleTimeString()));
    row.append(element('code', 'what', item.request));
    row.append(element('span', 'how', `${item.status} · ${item.ms} ms · ${item.summary}`));
    list.append(row);
  }
}

export function setupHistory() {
  const list = document.getElementById('history-list');
  document.getElementById('history-clear').addEventListener('click', () => {
    localStorage.removeItem(KEY);
    render(list);
  });
  render(list);
  return {
    // {request, status, ms, summary, outcome}
    add(entry) {
      const items = load();
      items.unshift(Object.assign({ at: Date.now() }, entry));
      localStorage.setItem(KEY, JSON.stringify(items.slice(0, LIMIT)));
      render(list);
    },
  };
}
