#include "platform/formatting/UpdateWords.h"

namespace kvl::formatting {
namespace {

constexpr UpdateWords kWords[] = {
    {.language = "en", .one = "{} update", .other = "{} updates"},
    {.language = "ar",
     .zero = "{} تحديث",
     .one = "تحديث واحد",
     .two = "تحديثان",
     .few = "{} تحديثات",
     .many = "{} تحديثًا",
     .other = "{} تحديث"},
    {.language = "bg", .one = "{} актуализация", .other = "{} актуализации"},
    {.language = "cs",
     .one = "{} aktualizace",
     .few = "{} aktualizace",
     .many = "{} aktualizace",
     .other = "{} aktualizací"},
    {.language = "da", .one = "{} opdatering", .other = "{} opdateringer"},
    {.language = "de", .one = "{} Aktualisierung", .other = "{} Aktualisierungen"},
    {.language = "el", .one = "{} ενημέρωση", .other = "{} ενημερώσεις"},
    {.language = "es",
     .one = "{} actualización",
     .many = "{} de actualizaciones",
     .other = "{} actualizaciones"},
    {.language = "fa", .one = "{} به‌روزرسانی", .other = "{} به‌روزرسانی"},
    {.language = "fi", .one = "{} päivitys", .other = "{} päivitystä"},
    {.language = "fr",
     .one = "{} mise à jour",
     .many = "{} de mises à jour",
     .other = "{} mises à jour"},
    {.language = "he", .one = "עדכון אחד", .two = "שני עדכונים", .other = "{} עדכונים"},
    {.language = "hi", .one = "{} अपडेट", .other = "{} अपडेट"},
    {.language = "hr", .one = "{} ažuriranje", .few = "{} ažuriranja", .other = "{} ažuriranja"},
    {.language = "hu", .one = "{} frissítés", .other = "{} frissítés"},
    {.language = "id", .other = "{} pembaruan"},
    {.language = "it",
     .one = "{} aggiornamento",
     .many = "{} di aggiornamenti",
     .other = "{} aggiornamenti"},
    {.language = "ja", .other = "{}件のアップデート"},
    {.language = "ko", .other = "업데이트 {}개"},
    {.language = "nb", .one = "{} oppdatering", .other = "{} oppdateringer"},
    {.language = "nl", .one = "{} update", .other = "{} updates"},
    {.language = "nn", .one = "{} oppdatering", .other = "{} oppdateringar"},
    {.language = "pl",
     .one = "{} aktualizacja",
     .few = "{} aktualizacje",
     .many = "{} aktualizacji",
     .other = "{} aktualizacji"},
    {.language = "pt",
     .one = "{} atualização",
     .many = "{} de atualizações",
     .other = "{} atualizações"},
    {.language = "pt_PT",
     .one = "{} atualização",
     .many = "{} de atualizações",
     .other = "{} atualizações"},
    {.language = "ro",
     .one = "{} actualizare",
     .few = "{} actualizări",
     .other = "{} de actualizări"},
    {.language = "ru",
     .one = "{} обновление",
     .few = "{} обновления",
     .many = "{} обновлений",
     .other = "{} обновления"},
    {.language = "sk",
     .one = "{} aktualizácia",
     .few = "{} aktualizácie",
     .many = "{} aktualizácie",
     .other = "{} aktualizácií"},
    {.language = "sl",
     .one = "{} posodobitev",
     .two = "{} posodobitvi",
     .few = "{} posodobitve",
     .other = "{} posodobitev"},
    {.language = "sr", .one = "{} ажурирање", .few = "{} ажурирања", .other = "{} ажурирања"},
    {.language = "sr_Latn",
     .one = "{} ažuriranje",
     .few = "{} ažuriranja",
     .other = "{} ažuriranja"},
    {.language = "sv", .one = "{} uppdatering", .other = "{} uppdateringar"},
    {.language = "th", .other = "การอัปเดต {} รายการ"},
    {.language = "tr", .one = "{} güncelleme", .other = "{} güncelleme"},
    {.language = "uk",
     .one = "{} оновлення",
     .few = "{} оновлення",
     .many = "{} оновлень",
     .other = "{} оновлення"},
    {.language = "vi", .other = "{} bản cập nhật"},
    {.language = "zh", .other = "{} 项更新"},
    {.language = "zh_Hant", .other = "{} 項更新"},
};

}  // namespace

std::span<const UpdateWords> allUpdateWords() noexcept {
  return kWords;
}

std::string_view formForCategory(const UpdateWords& words, std::string_view category) noexcept {
  std::string_view form;
  if (category == "zero") form = words.zero;
  if (category == "one") form = words.one;
  if (category == "two") form = words.two;
  if (category == "few") form = words.few;
  if (category == "many") form = words.many;
  return form.empty() ? words.other : form;
}

}  // namespace kvl::formatting
