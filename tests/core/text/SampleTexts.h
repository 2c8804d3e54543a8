#pragma once

#include <string>
#include <string_view>

namespace quorin::text::samples {

// Realistic text in each script, as UTF-8, for detection and round-trip tests:
// prose plus the kind of log lines users open in bulk.

inline constexpr std::string_view kJapanese =
    "吾輩は猫である。名前はまだ無い。どこで生れたかとんと見当がつかぬ。何でも薄暗いじめじめした所で"
    "ニャーニャー泣いていた事だけは記憶している。吾輩はここで始めて人間というものを見た。しかもあとで"
    "聞くとそれは書生という人間中で一番獰悪な種族であったそうだ。\n"
    "2024-03-15 09:12:44 情報 バックアップが正常に完了しました（所要時間 12 秒）。\n"
    "2024-03-15 09:12:45 警告 ディスクの空き容量が少なくなっています。不要なファイルを削除してください。\n"
    "2024-03-15 09:12:46 エラー 設定ファイルを読み込めませんでした：アクセスが拒否されました。\n";

inline constexpr std::string_view kSimplifiedChinese =
    "今天上午，市政府召开新闻发布会，介绍了今年以来全市经济运行情况。据统计，一季度全市地区生产总值"
    "同比增长百分之五点二，工业生产稳中有升，消费市场持续回暖，就业形势总体稳定。\n"
    "2024-03-15 09:12:44 信息 数据库连接已建立，用户登录成功。\n"
    "2024-03-15 09:12:45 警告 磁盘剩余空间不足，请及时清理临时文件。\n"
    "2024-03-15 09:12:46 错误 无法读取配置文件：权限被拒绝。\n";

inline constexpr std::string_view kTraditionalChinese =
    "臺北市政府今天舉行記者會，說明今年第一季的經濟發展情況。根據統計，全市營業額較去年同期成長百分之五，"
    "觀光人數也持續增加，各項建設都按照計畫順利進行。\n"
    "2024-03-15 09:12:44 資訊 資料庫連線已建立，使用者登入成功。\n"
    "2024-03-15 09:12:45 警告 磁碟剩餘空間不足，請儘快清理暫存檔案。\n"
    "2024-03-15 09:12:46 錯誤 無法讀取設定檔：權限遭到拒絕。\n";

inline constexpr std::string_view kKorean =
    "대한민국은 동아시아의 한반도 남부에 위치한 민주공화국이다. 수도는 서울특별시이며, 국어는 한국어이다. "
    "오늘 오전 시청에서 기자회견이 열려 올해 일사분기 경제 동향이 발표되었다.\n"
    "2024-03-15 09:12:44 정보 데이터베이스 연결이 설정되었습니다. 사용자가 로그인했습니다.\n"
    "2024-03-15 09:12:45 경고 디스크 여유 공간이 부족합니다. 임시 파일을 정리하십시오.\n"
    "2024-03-15 09:12:46 오류 설정 파일을 읽을 수 없습니다: 권한이 거부되었습니다.\n";

// Curly quotes, dashes, the euro sign and œ: the bytes 0x80–0x9F that set
// Windows-1252 apart from Latin-1.
inline constexpr std::string_view kWindows1252 =
    "« Il était une fois », dit-elle – l’histoire d’un cœur qui n’avait jamais battu… "
    "Le prix est de 12 € ; c’est “raisonnable”, paraît-il.\n"
    "Die Größe der Straße überrascht – „Grüße“ aus München, schrieb Jürgen.\n"
    "2024-03-15 09:12:44 Avertissement : l’espace disque est presque épuisé (reste 2 Go).\n";

// Accented letters only (bytes 0xA0–0xFF), as older Unix tools wrote them.
inline constexpr std::string_view kLatin1 =
    "Le garçon a mangé à la crèche près de l'école. Où est passé le château ? Très bien, à bientôt.\n"
    "Über die Brücke gehen Männer mit großer Freude; die Bäume blühen schön im Frühling.\n"
    "El niño español comió piñata en la montaña, ¡qué alegría! ¿Dónde está el café?\n";

// `text` repeated (with numbered lines) until it is at least `bytes` long.
inline std::string repeated(std::string_view text, size_t bytes) {
  std::string out;
  for (int i = 1; out.size() < bytes; ++i) {
    out += std::to_string(i) + ": ";
    out += text;
  }
  return out;
}

}  // namespace quorin::text::samples
