// get.dat and sdk.cgi: their JSON answers indented for reading.
import { pretty, request } from './api.js';

export function setupRelays(history) {
  const meta = document.getElementById('relay-meta');
  const output = document.getElementById('relay-output');

  function show(what, answer) {
    meta.textContent = `${what}: HTTP ${answer.status} in ${answer.ms} ms`;
    output.textContent = pretty(answer.text);
    history.add({ request: what, status: answer.status, ms: answer.ms, summary: answer.text.slice(0, 80),
      outcome: answer.status === 200 ? 'done' : 'failed' });
  }

  document.getElementById('getdat').addEventListener('click', async () => {
    show('get.dat', await request('/get.dat'));
  });
  document.getElementById('sdk-form').addEventListener('submit', async (event) => {
    event.preventDefault();
    const json = document.getElementById('sdk-json').value;
    show('sdk.cgi', await request('/sdk.cgi?json=' + encodeURIComponent(json)));
  });
}
